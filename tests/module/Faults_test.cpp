#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>

#include "StartedModule.h"
#include "platform/UniqueFd.h"
#include "support/TraceCapture.h"

namespace {

std::atomic<bool> threadsFail{false};
std::atomic<int> transferResult{7};

}  // namespace

// What the machine lacks, the loaded library lacks as well: this program's function goes before the C library's.
extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                                     const pthread_attr_t* attributes,
                                                                     void* (*run)(void*), void* argument) {
    static const auto real = reinterpret_cast<decltype(&pthread_create)>(::dlsym(RTLD_NEXT, "pthread_create"));
    return threadsFail ? EAGAIN : real(thread, attributes, run, argument);
}

/// No transfer begins; each ends like this.
extern "C" __attribute__((visibility("default"))) int curl_easy_perform(void* /*handle*/) {
    return transferResult;
}

using Faults = StartedModule;

TEST_F(Faults, ThreadsThatCannotBeStartedAreTriedAgain) {
    const std::string kUpdatesSupported = R"("OC":"0x2243","OE":1)";
    module_->Stop();
    EXPECT_TRUE(library_.remove());
    threadsFail = true;
    module_ = library_.StartModule(agent_);
    EXPECT_EQ(Request(kUpdatesSupported).first, 6U);
    Event();  // must be heard: no thread for the beeper either
    EXPECT_EQ(Request(R"("OC":"0x2240")"), kPending);
    threadsFail = false;
    EXPECT_EQ(Request(kUpdatesSupported).first, 22U);
    EXPECT_TRUE(agent_.AwaitReplies(1));
    Event();
}

TEST_F(Faults, MailSettingsThatWereLockedAtTheStartAreImportedAndReadForTheNextMail) {
    module_->Stop();
    EXPECT_TRUE(library_.remove());
    const std::filesystem::path raidManager = "/opt/kestrel/HostwardenSuite/ArrayKeeper/bin";
    std::filesystem::create_directories(raidManager);
    std::ofstream(raidManager / "ravlo.ini") << "[Logging]\nMailLogSMTPServer=127.0.0.1\n";
    std::filesystem::remove(kFile);
    const std::string lockFile = std::string(kFile) + ".lock";
    const CUniqueFd lock(::open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(::flock(lock.Get(), LOCK_EX), 0);
    module_ = library_.StartModule(agent_);
    const CTraceCapture trace;
    for (const char* servers : {"0", "2"}) {
        EXPECT_FALSE(std::filesystem::exists(kFile));
        const unsigned int replies = agent_.Replies();
        Request(R"("OC":"0x1060","DA":"From: ops@x\nTo: anna@x\n\ntext")");
        EXPECT_TRUE(agent_.AwaitReplies(replies + 1));
        EXPECT_TRUE(trace.Has("EM_ALERT            : Available internal SMTP settings: " + std::string(servers)));
        ::flock(lock.Get(), LOCK_UN);
    }
    EXPECT_TRUE(std::filesystem::exists(kFile));
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
        Request(R"("OC":"0x1060","DA":"From: ops@x\nTo: anna@x\n\ntext")");
        ASSERT_TRUE(agent_.AwaitReplies(++replies));
        EXPECT_EQ(agent_.LastData(), result);
        EXPECT_EQ(agent_.LastStatus(), result == 0 ? 0U : 6U) << result;
    }
}
