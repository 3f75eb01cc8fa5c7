#include "SecondSink.h"

#include "platform/DebugSink.h"

SecondSink& TheSecondSink() {
    static SecondSink sink;
    return sink;
}

class CSecondSink final : public CIDebugSink {
public:
    bool IsActive() const override { return TheSecondSink().isActive; }
    void Print(const char* format, va_list /*arguments*/, const char* /*moduleName*/) override {
        TheSecondSink().prints += format;
    }
};

__attribute__((visibility("default"))) CSecondSink Debug;
