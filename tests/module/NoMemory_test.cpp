// SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <iterator>
#include <new>
#include <set>

#include "StartedModule.h"
#include "support/TraceCapture.h"

// What the machine lacks, the loaded library lacks as well: this program's own heap goes before the C library's. Not
// for sanitizers, which have one of theirs.

namespace {

/// How many allocations of this thread still succeed; negative: all. What follows fails once, or until Restore.
struct Memory {
    int left = -1;
    bool once = true;
    bool failed = false;
};
thread_local constinit Memory memory;

bool HasMemory() {
    if (memory.left != 0) {
        memory.left -= memory.left > 0 ? 1 : 0;
        return true;
    }
    memory.left = memory.once ? -1 : 0;
    memory.failed = true;
    errno = ENOMEM;
    return false;
}

/// Lets the allocations of this thread fail from number `left` on.
void Limit(int left, bool once) {
    memory = {left, once, false};
}

/// @return whether an allocation had failed
bool Restore() {
    memory.left = -1;
    return memory.failed;
}

}  // namespace

#define EXPORTED extern "C" __attribute__((visibility("default")))

extern "C" void* __libc_malloc(std::size_t);
extern "C" void* __libc_calloc(std::size_t, std::size_t);
extern "C" void* __libc_realloc(void*, std::size_t);

EXPORTED void* malloc(std::size_t size) noexcept {
    return HasMemory() ? __libc_malloc(size) : nullptr;
}
EXPORTED void* calloc(std::size_t count, std::size_t size) noexcept {
    return HasMemory() ? __libc_calloc(count, size) : nullptr;
}
EXPORTED void* realloc(void* old, std::size_t size) noexcept {
    return HasMemory() ? __libc_realloc(old, size) : nullptr;
}

using namespace std::string_literals;
using NoMemory = StartedModule;

/// Each call again and again, with each of its allocations failing in turn, alone and with all that follow.
TEST_F(NoMemory, InACallCostsNoMoreThanTheCall) {
    const std::string calls[] = {
        kAlert,
        R"("OC":"0x3341","DA":{"RAW":[26,0,1,0,0,0,41,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0]})",
        R"("OC":"0xE002","OE":"0x0416","DA":"a subject that no short string holds")",
        kPendingAlert,
        kAcknowledge,
        R"("OC":"0xE001","OE":"0x0414")",
        R"("OC":"0xE002","OE":"0x0413","OI":258,"DA":"a name that no short string holds")"};
    const CTraceCapture trace(1);
    std::set<unsigned int> statuses;
    for (std::size_t i = 0; i < std::size(calls); ++i) {
        const bool isRequest = i >= 3;
        for (const bool once : {true, false}) {
            unsigned int status = 0;
            for (int left = 0, failed = 1; failed != 0; ++left) {
                SipJson message = MessageOf("{" + calls[i] + "}");
                Limit(left, once);
                EXPECT_TRUE(isRequest ? module_->ModuleRequest(message) : (module_->ApplicationReply(message), true));
                failed = Restore() ? 1 : 0;
                status = message.GetCmdElemValue(0, "ST", 0);
                statuses.insert(status);
                std::ifstream file(kFile);
                EXPECT_NE(std::string(std::istreambuf_iterator<char>(file), {}).find("<Address>anna@x<"),
                          std::string::npos);
            }
            EXPECT_EQ(status, 0U) << calls[i];
        }
    }
    EXPECT_TRUE(statuses.contains(13));  // there is memory for the answer again
    EXPECT_TRUE(
        trace.Has("\n\nEM_ALERT (REPLY)    : CABINET 0000: FATAL ERROR! EXCEPTION in Reply Handler OpCode 0x3341!"));
    EXPECT_TRUE(
        trace.Has("\nEM_ALERT (REQUEST)  : ## EXCEPTION! CABID 0000: OpCode 0xE002-0x0413 ObjId 0x0102 Status 0x0D"));
    Event();
    EXPECT_EQ(Request(kPendingAlert), kPending);
}

TEST_F(NoMemory, AnAlertThatCannotBeKeptIsHeardUntilTheBeepIsSwitchedOff) {
    unsigned int heard = 0;
    bool hasFailed = true;
    for (int left = 0; hasFailed; ++left) {
        SipJson alert = MessageOf("{" + std::string(kAlert) + "}");
        Limit(left, true);
        module_->ApplicationReply(alert);
        hasFailed = Restore();
        if (Request(kPendingAlert) != kPending && Threads() != silent_) {
            ++heard;
            Event(kBeepOff);
            EXPECT_TRUE(Becomes(true)) << left;
            Event(kBeepOn);
        }
        Request(kAcknowledge);
        EXPECT_TRUE(Becomes(true)) << left;
    }
    EXPECT_NE(heard, 0U);
}

TEST_F(NoMemory, InATaskIsAnswered) {
    unsigned int failures = 0;
    bool hasFailed = true;
    for (int left = 0; hasFailed; left += 7) {
        agent_.onRequest = [left] { Limit(left, true); };
        agent_.onReply = [&hasFailed] { hasFailed = Restore(); };
        EXPECT_EQ(Request(R"("OC":"0x2242","OE":0)").first, 22U);
        ASSERT_TRUE(agent_.AwaitReplies(++failures));
        EXPECT_TRUE(agent_.LastStatus() == 13 || agent_.LastStatus() == 0);
    }
}

TEST_F(NoMemory, AtTheStartCostsNoMoreThanSettings) {
    EXPECT_TRUE(module_->Stop() && library_.remove());
    for (int left = 0, failures = 1; failures != 0; left += 19) {
        failures = 0;
        Limit(left, false);
        const bool isCreated = [this] {
            try {
                return library_.create(&module_, nullptr);
            } catch (const std::bad_alloc&) {
                return false;
            }
        }();
        failures += Restore() ? 1 : 0;
        if (!isCreated) {
            continue;
        }
        Limit(left, false);
        EXPECT_TRUE(module_->Start(&agent_, 1));
        module_->OnSwitchStarted(nullptr);
        failures += Restore() ? 1 : 0;
        Event();
        EXPECT_EQ(Request(kPendingAlert), kPending) << left;
        EXPECT_EQ(Request(R"("OC":"0x2243")").first, 22U) << left;
        Limit(left % 5, false);
        EXPECT_TRUE(module_->Stop());
        EXPECT_TRUE(library_.remove());
        Restore();
    }
    module_ = library_.StartModule(agent_);
}
