#pragma once

#include <string>

/// A further object "Debug", of a library behind the program: what it got, and whether it wants any.
struct SecondSink {
    bool isActive = false;
    std::string prints;
};

__attribute__((visibility("default"))) SecondSink& TheSecondSink();
