// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <benchmark/benchmark.h>
#include <chrono>
#include <functional>
#include <string>

#include "bench/HeapCount.h"

/// The rules of pairing, in one place. A row is the project's way to do some work beside the floor, which does the same
/// work by the shortest means. Both sides are benchmarks of one run, "ROW/project" and "ROW/floor"; the run interleaves
/// their repetitions at random, so that a noisy moment meets both. bench/table divides the medians and compares them
/// with bench/goals.

enum class Clock {
    Cpu,  ///< of the measuring thread, which stays on one processor: for work that neither waits nor uses other threads
    Real,    ///< from begin to end
    Manual,  ///< what the side reports itself, see MeasureReported
};

/// One side of a row: gets things ready, then measures with one of the functions below.
using Side = std::function<void(benchmark::State&)>;

/// @param iterations  of one repetition; 0 lets the run find out how many it takes
void AddRow(const std::string& name, Clock clock, const Side& project, const Side& floor, int iterations = 0);

/// A row for exact counts of the project's side, which has no floor: sets counters of its state, once.
void AddCount(const std::string& name, const std::function<void(benchmark::State&)>& project);

/// Measures `work`, and counts the allocations of one call on this thread ("allocations").
template <class Work>
void Measure(benchmark::State& state, Work work) {
    work();  // brings caches and buffers to their usual state
    {
        const CHeapCount heap;
        work();
        state.counters["allocations"] = static_cast<double>(heap.Allocations());
    }
    for (auto _ : state) {
        work();
    }
}

/// Measures what `work` returns, in seconds: for rows with Clock::Manual.
template <class Work>
void MeasureReported(benchmark::State& state, Work work) {
    for (auto _ : state) {
        state.SetIterationTime(work());
    }
}

inline double SecondsSince(std::chrono::steady_clock::time_point begin) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// The families of rows, each in a source of its own.
void AddAlertRows();
void AddIniRows();
void AddLibraryRows();
void AddMailRows();
void AddMailTextRows();
void AddMessageRows();
void AddNotificationRows();
void AddTaskRows();
