// SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <future>
#include <pthread.h>
#include <sys/file.h>

#include "StartedModule.h"
#include "platform/files/UniqueFd.h"
#include "support/TraceCapture.h"
#include "testing/TempDirectory.h"

namespace {

std::atomic<bool> threadsFail{false};
std::atomic<bool> timeFlies{false};
std::atomic<int> transferResult{7};
std::function<void()> onTransfer = [] {};

}  // namespace

// What the machine lacks, the loaded library lacks as well: this program's function goes before the C library's.
extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                                     const pthread_attr_t* attributes,
                                                                     void* (*run)(void*), void* argument) {
    static const auto real = reinterpret_cast<decltype(&pthread_create)>(::dlsym(RTLD_NEXT, "pthread_create"));
    return threadsFail ? EAGAIN : real(thread, attributes, run, argument);
}

extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* time, timespec* left) {
    static const auto real = reinterpret_cast<decltype(&nanosleep)>(::dlsym(RTLD_NEXT, "nanosleep"));
    return timeFlies ? 0 : real(time, left);
}

/// No transfer begins; each ends like this.
extern "C" __attribute__((visibility("default"))) int curl_easy_perform(void* /*handle*/) {
    onTransfer();
    return transferResult;
}

namespace {

constexpr char kMailOff[] = R"("OC":"0xE002","OE":"0x0410","DA":0)";
constexpr char kUpdateMailOn[] = R"("OC":"0xE002","OE":"0x1A4D","DA":1)";
constexpr char kUpdates[] = R"("OC":"0x3341","DA":{"RAW":[26,0,1,0,0,0,41,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0]})";
constexpr char kTestMail[] = R"("OC":"0x2242")";
constexpr char kMail[] = R"("OC":"0x1060","DA":"From: ops@x\nTo: anna@x\n\ntext")";

bool IsMapped() {
    std::ifstream maps("/proc/self/maps");
    return std::string(std::istreambuf_iterator<char>(maps), {}).find("libem_alert.so") != std::string::npos;
}

}  // namespace

TEST(Library, ExportsTheFourFunctionsAndNothingElse) {
    EXPECT_EQ(
        std::system("nm -D --defined-only --format=just-symbols " EM_LIBRARY " | diff - " EM_SCENARIOS "/exports"), 0);
}

TEST(Library, CreatesOneModuleAtATimeAndUnloadsForGood) {
    for (int round = 0; round < 3; ++round) {
        {
            const CLoadedLibrary library;
            EXPECT_FALSE(library.remove());
            CIExtensionModule* module = library.CreateModule();
            EXPECT_EQ(module, library.CreateModule());
            EXPECT_STREQ(module->GetName(), "EM_ALERT");
            EXPECT_STREQ(library.name(), "EM_ALERT");
            EXPECT_TRUE(module->DetectHardware() && module->SetServerCabinetNumber(7));
            EXPECT_TRUE(library.remove());
            SipJson request = MessageOf(R"({"OC":8768,"CA":7})");  // the number stays
            EXPECT_TRUE(library.CreateModule()->ModuleRequest(request) && library.remove());
            EXPECT_FALSE(library.remove());
            EXPECT_EQ(library.setupAction(1), 1);
        }
        EXPECT_FALSE(IsMapped());
    }
}

TEST(Library, FillsThePropertiesByteForByte) {
    const CLoadedLibrary library;
    CIExtensionModule* module = library.CreateModule();
    _ExtensionModuleProperties properties;
    std::memset(&properties, 0xA4, sizeof properties);
    properties.size = 245;
    std::string expected(reinterpret_cast<const char*>(&properties), sizeof properties);
    EXPECT_FALSE(module->GetProperties(properties));
    EXPECT_EQ(std::memcmp(&properties, expected.data(), sizeof properties), 0);

    properties.size = 246;
    EXPECT_TRUE(module->GetProperties(properties));
    expected.replace(0, 4, std::string("\xF6\0\0\0", 4));
    expected[8] = expected[21] = '\xA7';
    expected.replace(26, 4, std::string("\x64\0\0\0", 4));
    expected.replace(42, 4, std::string("\x02\0\0\0", 4));
    expected.replace(46, 16, std::string("EM_ALERT").append(8, '\0'));
    expected.replace(62, 84, 84, '\0');
    expected.replace(146, 96, std::string("Alert handling module").append(75, '\0'));
    expected.replace(242, 4, 4, '\0');
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&properties), sizeof properties), expected);
    properties.size = 247;  // an agent of later days
    EXPECT_TRUE(module->GetProperties(properties) && properties.size == 247);
    EXPECT_TRUE(library.remove());
}

TEST(Library, AModuleThatNobodyStartedOrStoppedIsDeleted) {
    const CLoadedLibrary library;
    library.CreateModule()->OnSwitchStarted(
        nullptr);  // without a switch: each request fails, the worker runs all the same
    EXPECT_TRUE(library.remove());
}

/// What an agent does while the module waits for it.
class Beep : public StartedModule {
protected:
    /// Does it at the next question, or in the next delivery of an event, and never again.
    void Once(std::function<void()>& when, std::function<void()> what) {
        when = [&when, what = std::move(what)] {
            const auto now = what;
            when = [] {};
            now();
        };
    }

    void AwaitPending(bool isPending) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while ((Request(kPendingAlert) == kPending) != isPending) {
            ASSERT_LT(std::chrono::steady_clock::now(), end);
            std::this_thread::yield();
        }
    }

    CTraceCapture trace_;
};

TEST_F(Beep, NothingSoundsThatWasAcknowledgedOrSwitchedOffMeanwhile) {
    const struct {
        const char* what;
        std::function<void()>& when;
        std::function<void()> meanwhile;
        bool isSilent;
    } cases[] = {
        {"nothing", agent_.onEvent, [] {}, false},
        {"acknowledged in its delivery", agent_.onEvent, [&] { Request(kAcknowledge); }, true},
        {"switched off in its delivery", agent_.onEvent, [&] { Event(kBeepOff); }, true},
        {"switched off before its answer", agent_.onRequest, [&] { Event(kBeepOff); }, true},
        {"switched off and on before its answer", agent_.onRequest, [&] { Event(kBeepOff), Event(kBeepOn); }, false},
        {"OK in its delivery", agent_.onEvent, [&] { agent_.systemStatus = 1, Event(), agent_.systemStatus = 3; },
         true},
    };
    for (const auto& c : cases) {
        Once(c.when, c.meanwhile);
        Event();
        EXPECT_TRUE(Becomes(c.isSilent)) << c.what;
        Event(kBeepOn);
        Event();
        EXPECT_TRUE(Becomes(false)) << c.what;
        Request(kAcknowledge);
        EXPECT_TRUE(Becomes(true)) << c.what;
    }
}

TEST_F(Beep, AnAlertThatCameSinceThenKeepsItsTones) {
    Event();
    agent_.systemStatus = 1;
    std::jthread acknowledgement;
    std::jthread other;
    const auto alert = [&] {
        agent_.systemStatus = 3;
        other = std::jthread([&] { Event(); });
        AwaitPending(true);
    };
    trace_.Once("Process beep alert for severity 1", alert);
    Event();  // all is well, and then no longer
    other.join();
    trace_.Once("Process beep alert for severity 3", [&] {
        acknowledgement = std::jthread([&] { Request(kAcknowledge); });
        AwaitPending(false);
        alert();
    });
    Event();
    acknowledgement.join();
    EXPECT_FALSE(trace_.Has("Stop beep tone sequence"));
    EXPECT_FALSE(trace_.Has("Stop system speaker sound!"));
}

TEST_F(Beep, StopLeavesTheSpeakerSilentEventsRefusedAndRequestsAnswered) {
    Event();
    EXPECT_TRUE(Becomes(false));
    module_->Stop();
    --silent_;  // the worker has ended as well
    EXPECT_TRUE(Becomes(true));
    EXPECT_EQ(Request(kAcknowledge), kPending);
    Event();
    EXPECT_EQ(Request(kPendingAlert).second, 0U);
    EXPECT_EQ(Request(R"("OC":"0x2243")").first, 6U);
    const std::string all = trace_.All();
    EXPECT_LT(all.find("CTaskSerializer     :   terminated"), all.rfind("a joinable Thread"));  // the beeper's, last
    EXPECT_EQ(trace_.Count("<- ApplicationReply()"), 2);
}

TEST_F(Beep, WhatAnEventTellsHasHappened) {
    bool isAdded = false;
    Once(agent_.onEvent, [&] { isAdded = trace_.Has("added to pending alerts (1)"); });
    Event();
    EXPECT_TRUE(isAdded);
    EXPECT_TRUE(Becomes(false));
    trace_.Clear();
    bool isSilent = false;
    Once(agent_.onEvent, [&] { isSilent = trace_.Has("THREAD_RETURN"); });
    EXPECT_EQ(Request(kAcknowledge), kPending);
    EXPECT_TRUE(isSilent);
}

TEST_F(Beep, AModuleThatIsStartedAgainWorksAgain) {
    module_->Stop();
    trace_.Clear();
    bool isReady = false;
    agent_.onEnable = [&] { isReady = trace_.Has("\nCThread::Start: thread="); };
    EXPECT_TRUE(module_->Start(&agent_, 1));
    module_->OnSwitchStarted(nullptr);
    EXPECT_TRUE(isReady);  // the worker is there before events come
    Event();
    EXPECT_TRUE(Becomes(false));
    EXPECT_EQ(Request(R"("OC":"0x2243")").first, 6U);  // but for what is queued
}

TEST_F(Beep, AnAnswerWithoutAStatusTellsNothing) {
    agent_.hasAnswerStatus = false;
    Event();
    EXPECT_EQ(Request(kPendingAlert).second, 0U);
}

TEST_F(Beep, MailsThatAreSwitchedOffBeforeTheAnswerAreNotSent) {
    Once(agent_.onRequest, [&] { Event(kMailOff); });
    Event();
    EXPECT_FALSE(trace_.Has("Generate eMail alert"));
}

class Faults : public StartedModule {
protected:
    /// Deletes the module as well.
    void HaveTheRaidManagersSettingsOnly() {
        module_->Stop();
        EXPECT_TRUE(library_.remove());
        const std::filesystem::path raidManager = "/opt/kestrel/HostwardenSuite/ArrayKeeper/bin";
        std::filesystem::create_directories(raidManager);
        std::ofstream(raidManager / "ravlo.ini")
            << "[Logging]\nMailLogSMTPServer=127.0.0.1\nMailLogSender=ops@x\nMailLogRecipient=anna@x\n";
        std::filesystem::remove(kFile);
    }
};

TEST_F(Faults, ThreadsThatCannotBeStartedAreTriedAgain) {
    const std::string kUpdatesSupported = R"("OC":"0x2243","OE":1)";
    module_->Stop();
    EXPECT_TRUE(library_.remove());
    threadsFail = true;
    module_ = library_.StartModule(agent_);
    EXPECT_EQ(Request(kUpdatesSupported).first, 6U);
    Event();  // must be heard: no thread for the beeper either
    EXPECT_EQ(Request(kPendingAlert), kPending);
    threadsFail = false;
    EXPECT_EQ(Request(kUpdatesSupported).first, 22U);
    EXPECT_TRUE(agent_.AwaitReplies(1));
    Event();
}

TEST_F(Faults, MailSettingsThatWereLockedAtTheStartAreImportedAndReadForTheNextMail) {
    const std::function<void()> mails[] = {[&] { Request(kMail); }, [&] { Request(kTestMail); }, [&] { Event(); },
                                           [&] { Event(kUpdateMailOn), Event(kUpdates); }};
    CTraceCapture trace;
    timeFlies = true;  // while the module waits for the lock
    for (const auto& mail : mails) {
        HaveTheRaidManagersSettingsOnly();
        const CUniqueFd lock(::open((std::string(kFile) + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        ASSERT_EQ(::flock(lock.Get(), LOCK_EX), 0);
        trace.Clear();
        module_ = library_.StartModule(agent_);
        EXPECT_TRUE(trace.Has("settings imported into shared"));  // into memory
        for (const char* found : {"SMTP configurations added: 0", "Available internal SMTP settings: 2"}) {
            EXPECT_FALSE(std::filesystem::exists(kFile));
            trace.Clear();
            mail();
            EXPECT_TRUE(trace.Await(found));
            ::flock(lock.Get(), LOCK_UN);
        }
        EXPECT_TRUE(std::filesystem::exists(kFile));
    }
    timeFlies = false;
}

TEST_F(Faults, AnImportIsSavedUnlessThePlaceIsNoGood) {
    HaveTheRaidManagersSettingsOnly();
    const std::filesystem::path directory = std::filesystem::path(kFile).parent_path();
    std::ofstream(kFile) << "damaged";
    module_ = library_.StartModule(agent_);
    std::filesystem::remove(kFile);
    module_->OnSwitchStarted(nullptr);
    EXPECT_TRUE(std::filesystem::remove(kFile));
    std::filesystem::create_directory(std::string(kFile) + ".lock");  // so that none can be made
    module_->OnSwitchStarted(nullptr);
    EXPECT_TRUE(std::filesystem::exists(kFile));
    const std::pair<std::filesystem::path, std::string> places[] = {
        {directory, "save file \"" + std::string(kFile)},
        {directory.parent_path(), "create directory \"" + directory.string()},
    };
    for (const auto& [noDirectory, failure] : places) {
        std::filesystem::remove_all(noDirectory);
        std::ofstream(noDirectory) << "no directory";
        const CTraceCapture trace(3);
        module_->OnSwitchStarted(nullptr);
        EXPECT_TRUE(trace.Has("\nCNotificationConfig : ERROR! FAILED to " + failure + "\"!"));
        EXPECT_TRUE(trace.Has("settings imported into shared"));
    }
}

TEST_F(Faults, MailsAreRefusedWhileNinetyNineWait) {
    const CTraceCapture trace;
    std::promise<void> release;
    agent_.onReply = [isReleased = release.get_future().share()] { isReleased.wait(); };
    Request(kMail);
    EXPECT_TRUE(trace.Await("SendMail RetCode"));  // the worker has it
    unsigned int waiting = 0;
    while (waiting < 200 && Request(kMail).first == 22) {
        ++waiting;
    }
    EXPECT_EQ(waiting, 99U);
    EXPECT_EQ(Request(kMail).first, 6U);
    release.set_value();
    EXPECT_TRUE(agent_.AwaitReplies(waiting + 1));
}

/// Wherever something is traced, a thread of the agent, or the worker, may end.
TEST_F(Faults, AThreadThatIsKilledInTheModuleDoesNotTakeTheProcessWithIt) {
    const std::pair<const char*, std::function<void()>> kills[] = {
        {": Beep alert ", [&] { module_->OnSwitchStarted(nullptr); }},
        {"(RPL)", [&] { Event(); }},
        {"Process alert: CABID", [&] { Event(); }},
        {"Add error alert", [&] { Event(); }},
        {"(REQ)", [&] { Request(kAcknowledge); }},
        {"Clear all pending alerts", [&] { Event(), Request(kAcknowledge); }},
        {"Generate system status test mail", [&] { Request(kTestMail); }},  // the worker
    };
    for (const auto& [text, call] : kills) {
        const CTraceCapture trace;
        std::promise<void> killed;
        trace.Once(text, [&] {
            ::pthread_cancel(::pthread_self());
            killed.set_value();
        });
        const std::jthread agent(call);
        EXPECT_EQ(killed.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready) << text;
    }
    EXPECT_TRUE(module_->Stop());
    EXPECT_EQ(agent_.Replies(), 0U);
}

TEST_F(Faults, ADeletionBreaksAMailOffBeforeTheNextServer) {
    const CTraceCapture trace;
    std::jthread deletion;
    onTransfer = [&] {
        deletion = std::jthread([&] { EXPECT_TRUE(library_.remove()); });
        EXPECT_TRUE(trace.Await("TerminateSerialization!"));
    };
    Request(kMail);
    EXPECT_TRUE(agent_.AwaitReplies(1));
    onTransfer = [] {};
    deletion.join();
    EXPECT_TRUE(trace.Has("SendMail RetCode") && !trace.Has("skipped - empty host name"));
    module_ = library_.StartModule(agent_);
}

TEST_F(Faults, ASettingThatCannotBeSavedDoesNotCount) {
    const std::string tooLong(std::size_t{17} << 20, 'x');
    EXPECT_EQ(Request(R"("OC":"0xE002","OE":"0x0412","DA":")" + tooLong + '"').first, 6U);
    const CTraceCapture trace;
    Event();
    EXPECT_TRUE(trace.Has(R"(SendMail sender: "ops@x")"));
}

TEST_F(Faults, ASettingGoesIntoWhatOthersHaveMadeOfTheFile) {
    EXPECT_EQ(Request(R"("OC":"0xE002","OE":"0x0412","DA":"ops@y")").first, 0U);
    std::string text = ReadFile(kFile);
    WriteFile(kFile, text.replace(text.find("ops@y"), 5, "ops@z"));
    EXPECT_EQ(Request(R"("OC":"0xE002","OE":"0x0413","DA":"Alerts")").first, 0U);
    text = ReadFile(kFile);
    EXPECT_TRUE(text.find("ops@z") != std::string::npos && text.find("Alerts") != std::string::npos) << text;
}

TEST_F(Faults, TheLockOfTheSettingsIsReleasedBeforeItsOwnerGoes) {
    const CTraceCapture trace;
    EXPECT_EQ(Request(R"("OC":"0xE002","OE":"0x0412","DA":"ops@y")").first, 0U);
    module_->OnSwitchStarted(nullptr);
    EXPECT_EQ(trace.Count("apply file lock"), 2);
    EXPECT_FALSE(trace.Has("release file lock"));
}

TEST_F(Faults, TestMailsAreAnsweredWithTheConsolesNumbersOthersWithTheResult) {
    constexpr unsigned int kNumbers[] = {0,  1,  3,  4,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16, 26, 17,
                                         18, 19, 20, 21, 22, 23, 24, 25, 27, 1,  1,  1,  18, 1,  1};
    unsigned int replies = 0;
    for (unsigned int result = 0; result < std::size(kNumbers); ++result) {
        transferResult = static_cast<int>(result);
        Request(R"("OC":"0x2242","OE":1)");
        ASSERT_TRUE(agent_.AwaitReplies(++replies));
        EXPECT_EQ(agent_.LastData(), kNumbers[result]) << result;
        EXPECT_EQ(agent_.LastStatus(), 0U);
        Request(kMail);
        ASSERT_TRUE(agent_.AwaitReplies(++replies));
        EXPECT_EQ(agent_.LastData(), result);
        EXPECT_EQ(agent_.LastStatus(), result == 0 ? 0U : 6U) << result;
    }
    EXPECT_EQ(Request(R"("OC":"0x1060","DA":1.5)").first, 22U);  // a number, though it has no size
    EXPECT_TRUE(agent_.AwaitReplies(++replies) && agent_.LastStatus() == 18);
}
