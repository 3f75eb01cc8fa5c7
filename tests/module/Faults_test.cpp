#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <pthread.h>

#include "AnsweringSwitch.h"
#include "LoadedLibrary.h"

// What the machine lacks, the loaded library lacks as well: this program's own functions go before the C library's.

namespace {

/// How many allocations of this thread still succeed; negative: all. What follows fails once, or until Restore.
struct Memory {
    int left = -1;
    bool once = true;
    bool failed = false;
};
thread_local constinit Memory memory;
std::atomic<bool> threadsFail{false};

bool HasMemory() {
    if (memory.left < 0) {
        return true;
    }
    if (memory.left > 0) {
        --memory.left;
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

EXPORTED int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument) {
    static const auto real = reinterpret_cast<decltype(&pthread_create)>(::dlsym(RTLD_NEXT, "pthread_create"));
    return threadsFail ? EAGAIN : real(thread, attributes, run, argument);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they have their own heap

extern "C" void* __libc_malloc(std::size_t);               // NOLINT(bugprone-reserved-identifier)
extern "C" void* __libc_calloc(std::size_t, std::size_t);  // NOLINT(bugprone-reserved-identifier)
extern "C" void* __libc_realloc(void*, std::size_t);       // NOLINT(bugprone-reserved-identifier)

EXPORTED void* malloc(std::size_t size) noexcept {
    return HasMemory() ? __libc_malloc(size) : nullptr;
}
EXPORTED void* calloc(std::size_t count, std::size_t size) noexcept {
    return HasMemory() ? __libc_calloc(count, size) : nullptr;
}
EXPORTED void* realloc(void* old, std::size_t size) noexcept {
    return HasMemory() ? __libc_realloc(old, size) : nullptr;
}

#endif

namespace {

constexpr char kFile[] = "/etc/kestrel/HostwardenSuite/ManagedNode/Notifications/Notifications.xml";
constexpr char kSettings[] =
    "<Notifications><email><Format><Sender><Address>ops@x</Address></Sender><Recipients><Recipient><Address>anna@x"
    "</Address></Recipient></Recipients></Format><SMTP><Server><Host>127.0.0.1</Host><Port>9</Port></Server></SMTP>"
    "</email></Notifications>";

SipJson Command(const std::string& members) {
    const std::string text = R"({"SIP":{"V":1,"CMD":[{)" + members + "}]}}";
    SipJson message;
    EXPECT_TRUE(message.Parse(text.data(), text.size())) << text;
    return message;
}

class Faults : public ::testing::Test {
protected:
    Faults() {
        std::filesystem::create_directories(std::filesystem::path(kFile).parent_path());
        std::ofstream(kFile) << kSettings;
        module_ = library_.StartModule(agent_);
    }
    ~Faults() override {
        EXPECT_TRUE(module_->Stop());
        EXPECT_TRUE(library_.remove());
        std::filesystem::remove_all("/etc/kestrel");
    }
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;

    /// @return the answer's status, and its data as a number
    std::pair<unsigned int, unsigned int> Request(const std::string& members) {
        SipJson request = Command(members);
        module_->ModuleRequest(request);
        unsigned int data = 0;
        request.GetCmdUIntData(0, data);
        return {request.GetCmdElemValue(0, "ST", 999), data};
    }
    void Event(const std::string& members = R"("OC":"0x2322","OE":3,"DA":3)") {
        SipJson event = Command(members);
        module_->ApplicationReply(event);
    }

    const std::pair<unsigned int, unsigned int> kPending{0, 1};
    const CLoadedLibrary library_;
    CAnsweringSwitch agent_;
    CIExtensionModule* module_ = nullptr;
};

}  // namespace

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

TEST_F(Faults, AfterTheStopEventsAreRefusedAndRequestsAnswered) {
    Event();
    module_->Stop();
    EXPECT_EQ(Request(R"("OC":"0x2241")"), kPending);
    Event();
    EXPECT_EQ(Request(R"("OC":"0x2240")").second, 0U);
    EXPECT_EQ(Request(R"("OC":"0x2243")").first, 6U);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

/// Each call again and again, with each of its allocations failing in turn, alone and with all that follow.
TEST_F(Faults, NoMemoryInACallCostsNoMoreThanTheCall) {
    const std::string event = R"("OC":"0x2322","OE":3,"OI":1,"DA":3)";
    const std::string update = R"("OC":"0x3341","DA":{"RAW":[26,0,1,0,0,0,41,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0]})";
    const std::string notice = R"("OC":"0xE002","OE":"0x0416","DA":"a subject that no short string holds")";
    for (const bool once : {true, false}) {
        for (const std::string& members : {event, update, notice}) {
            for (int left = 0;; ++left) {
                SipJson message = Command(members);
                Limit(left, once);
                module_->ApplicationReply(message);
                if (!Restore()) {
                    break;
                }
            }
        }
        for (const char* members : {R"("OC":"0x2240")", R"("OC":"0x2241")", R"("OC":"0xE001","OE":"0x0414")",
                                    R"("OC":"0xE002","OE":"0x0413","DA":"a name that no short string holds")"}) {
            for (int left = 0;; ++left) {
                SipJson message = Command(members);
                Limit(left, once);
                EXPECT_TRUE(module_->ModuleRequest(message));
                if (!Restore()) {
                    EXPECT_EQ(message.GetCmdElemValue(0, "ST", 999), 0U) << members;
                    break;
                }
            }
        }
    }
    Event(event);
    EXPECT_EQ(Request(R"("OC":"0x2240")"), kPending);
    std::ifstream file(kFile);
    EXPECT_NE(std::string(std::istreambuf_iterator<char>(file), {}).find("<Address>anna@x<"), std::string::npos);
}

TEST_F(Faults, NoMemoryInATaskIsAnswered) {
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

#endif
