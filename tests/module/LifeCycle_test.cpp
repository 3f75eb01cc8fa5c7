// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <malloc.h>
#include <netdb.h>
#include <string_view>
#include <sys/wait.h>
#include <thread>

#include "StartedModule.h"
#include "testing/SmtpServer.h"

namespace {

std::atomic<int> lookUps{0};
std::atomic<bool> isLookUpOver{false};

}  // namespace

// This program's resolver, which the library's transfers use as well: it does not answer until it is told to.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name, const char* service,
                                                                  const addrinfo* hints, addrinfo** found) {
    static const auto real = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    if (std::string_view(name) != "hangs.example") {
        return real(name, service, hints, found);
    }
    ++lookUps;
    while (!isLookUpOver) {
        ::usleep(1000);
    }
    --lookUps;
    return EAI_AGAIN;
}

namespace {

constexpr char kTask[] = R"({"OC":"0x2243"})";  // the only one that is queued
constexpr char kTestMail[] = R"({"OC":"0x2242"})";
constexpr int kCycles = 50;
constexpr std::size_t kTaskRecord = 2048;  // bytes at most: what termination drops is not released
constexpr std::size_t kHeapNoise = 32768;

auto Entries(const char* directory) {
    return std::distance(std::filesystem::directory_iterator(directory), {});
}

/// Runs `body` in four processes side by side, each with its number; they expect that no test in it fails.
void RunInProcesses(const std::function<void(unsigned int)>& body) {
    std::array<pid_t, 4> children{};
    for (unsigned int i = 0; i < children.size(); ++i) {
        if ((children[i] = ::fork()) == 0) {
            body(i);
            std::exit(::testing::Test::HasFailure() ? 1 : 0);
        }
    }
    for (const pid_t child : children) {
        int status = -1;
        EXPECT_TRUE(::waitpid(child, &status, 0) == child && status == 0) << status;
    }
}

/// @return whether the request was queued
[[gnu::noinline]] bool QueueTask(CIExtensionModule& module, const char* command) {
    SipJson request = MessageOf(command);
    module.ModuleRequest(request);
    return request.GetCmdElemValue(0, "ST", 0) == 22;
}

/// From load to unload; events and requests go on while the module stops.
/// @return the number of tasks that the stop dropped
unsigned int LiveOnce(unsigned int stopAfter) {
    CAnsweringSwitch agent;
    const CLoadedLibrary library;
    CIExtensionModule* module = library.StartModule(agent);
    std::atomic<unsigned int> queued{0};
    std::atomic<unsigned int> rounds{0};
    std::atomic<bool> isDone{false};
    std::jthread events([&] {
        while (!isDone) {
            SipJson event = MessageOf(R"({"OC":"0x2322","OE":3,"OI":1,"DA":3})");
            module->ApplicationReply(event);
            ++rounds;
        }
    });
    std::jthread requests([&] {
        while (!isDone) {
            for (const char* command : {R"({"OC":"0x2240"})", R"({"OC":"0x2241"})",
                                        R"({"OC":"0xE002","OE":"0x0413","DA":"Alerts"})", kTask}) {
                queued += QueueTask(*module, command) ? 1 : 0;
            }
        }
    });
    while (rounds < stopAfter) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(module->Stop());
    isDone = true;
    events.join();
    requests.join();
    EXPECT_TRUE(library.remove());
    return queued - agent.Replies();
}

}  // namespace

TEST(LifeCycle, TwoHundredTimesWithTrafficLeaveNothingBehind) {
    RunInProcesses([](unsigned int) {
        unsigned int dropped = 0;
        std::size_t heap = 0;
        std::ptrdiff_t descriptors = 0;
        std::ptrdiff_t threads = 0;
        for (int cycle = 0; cycle < kCycles; ++cycle) {
            dropped += LiveOnce(static_cast<unsigned int>(cycle % 7));
            if (cycle == kCycles / 5) {
                dropped = 0;
                heap = ::mallinfo2().uordblks;
                descriptors = Entries("/proc/self/fd");
                threads = Entries("/proc/self/task");
            }
        }
        EXPECT_LE(::mallinfo2().uordblks, heap + dropped * kTaskRecord + kHeapNoise);
        EXPECT_EQ(Entries("/proc/self/fd"), descriptors);
        EXPECT_EQ(Entries("/proc/self/task"), threads);
    });
}

TEST(LifeCycle, AHostMayExitAtAnyTimeWithoutStop) {
    const CSmtpServer server({"--hang", "MAIL"});
    WriteSettings("127.0.0.1", server.Port());
    RunInProcesses([](unsigned int i) {
        CAnsweringSwitch agent;
        const CLoadedLibrary library;
        CIExtensionModule* module = library.StartModule(agent);
        std::atomic<bool> isRunning{false};
        agent.onRequest = [&] { isRunning = true; };
        QueueTask(*module, kTestMail);
        while (!isRunning) {
            std::this_thread::yield();
        }
        ::usleep(i * 30000);
        std::exit(0);
    });
}

TEST(LifeCycle, ALookUpThatOutlivesTheLibraryDoesNoHarm) {
    WriteSettings("hangs.example", 25);
    {
        CAnsweringSwitch agent;
        const CLoadedLibrary library;
        CIExtensionModule* module = library.StartModule(agent);
        QueueTask(*module, kTestMail);
        while (lookUps == 0) {
            std::this_thread::yield();
        }
        EXPECT_TRUE(module->Stop());
        EXPECT_TRUE(library.remove());
    }
    EXPECT_EQ(lookUps, 1);
    isLookUpOver = true;
    while (lookUps != 0) {
        std::this_thread::yield();
    }
    ::usleep(100000);  // the thread is still on its way out, through libcurl's code
}
