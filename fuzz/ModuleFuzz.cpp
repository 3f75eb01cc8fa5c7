// SPDX-License-Identifier: Apache-2.0
#include <condition_variable>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sched.h>
#include <unistd.h>
#include <vector>

#include <curl/curl.h>

#include "em_alert/EmAlert.h"
#include "fuzz/Fuzz.h"
#include "notification/NotificationConfig.h"
#include "platform/diagnostics/TraceObjects.h"
#include "sip/SipJson.h"
#include "sip/Vocabulary.h"
#include "testing/SilentSwitch.h"

namespace {

constexpr unsigned int kCabinet = 7;
constexpr unsigned int kEventMark = 255;

/// What stands for a mail server: the result of every transfer.
std::atomic<int> transferResult{0};

unsigned int Member(const SipJson& message, const char* key) {
    return message.GetCmdElemValue(message.GetCmdIndex(), key, 0);
}

/// The agent: answers requests from a table of commands, and counts the replies to queued requests.
class CAgent final : public CSilentSwitch {
public:
    void AddAnswer(SipJson&& answer) {
        const std::lock_guard guard(lock_);
        answers_.push_back(std::move(answer));
    }

    /// Waits for so many replies.
    void AwaitReplies(unsigned int count) {
        std::unique_lock guard(lock_);
        replied_.wait_for(guard, std::chrono::seconds(20), [&] { return replies_ >= count; });
        Expect(replies_ == count, "each request that was queued gets one reply");
    }

    void SyncRequest(CIExtensionModule*, SipJson& message, unsigned int) override {
        const std::lock_guard guard(lock_);
        for (const SipJson& answer : answers_) {
            if (Member(answer, "OC") == Member(message, "OC") && Member(answer, "OE") == Member(message, "OE")) {
                message = answer;
                return;
            }
        }
        message.SetStatus(kNotHandled);
    }
    bool DeliverMessage(CIExtensionModule*, SipJson& message) override {
        if (Member(message, "ST") != kEventMark) {
            const std::lock_guard guard(lock_);
            ++replies_;
            replied_.notify_all();
        }
        return true;
    }

private:
    std::mutex lock_;
    std::condition_variable replied_;
    std::vector<SipJson> answers_;
    unsigned int replies_ = 0;
};

/// A command, or a whole message when that is what the line holds.
bool ToMessage(const std::string& json, SipJson& message) {
    const std::string text = json.starts_with("{\"SIP\"") ? json : R"({"SIP":{"V":1,"CMD":[)" + json + "]}}";
    return message.Parse(text.data(), text.size());
}

/// @return true when the answer follows through the agent
bool Request(CIExtensionModule& module, SipJson& message) {
    const bool isLocal = message.GetCmdElemValue(message.GetCmdIndex(), "CA", kCabinet) == kCabinet;
    Expect(module.ModuleRequest(message) == isLocal, "requests for other servers are left to them, and no other");
    std::string json;
    Expect(message.GetJson(json), "an answer can be printed");
    return Member(message, "ST") == kAnswerFollows;
}

class CRun {
public:
    CRun() {
        Expect(EM_Create(&module_, nullptr) && module_ != nullptr, "a module can be made");
        module_->SetServerCabinetNumber(kCabinet);
        module_->Start(&agent_, 3);
    }
    CRun(const CRun&) = delete;
    CRun& operator=(const CRun&) = delete;
    ~CRun() {
        Finish();
        agent_.AwaitReplies(queued_);
        Expect(module_->Stop(), "a module can be stopped");
        Expect(EM_Delete(), "a module can be deleted");
    }

    /// One step: a letter, and what it is about.
    void Step(char letter, const std::string& text) {
        SipJson message;
        if (letter == 'n') {
            module_->Notify(static_cast<unsigned int>(std::strtoul(text.c_str(), nullptr, 0)), nullptr, nullptr);
        } else if (letter == 'm') {
            transferResult = static_cast<int>(std::strtol(text.c_str(), nullptr, 10) & 0x7F);
        } else if (letter == 'i') {
            index_ = static_cast<int>(std::strtol(text.c_str(), nullptr, 10) % 1000);
        } else if (letter == 's') {
            module_->OnSwitchStarted(nullptr);
        } else if (ToMessage(text, message)) {
            if (letter == 'a') {
                agent_.AddAnswer(std::move(message));
                return;
            }
            message.SetCmdIndex(index_);
            if (letter == 'e') {
                module_->ApplicationReply(message);
            } else if (letter == 'r' && Request(*module_, message)) {
                ++queued_;
            }
        }
    }

private:
    /// Lets the worker run, also where no step did, and wakes it: what was queued before waits for the next request.
    void Finish() {
        module_->OnSwitchStarted(nullptr);
        index_ = 0;
        Step('r', R"({"OC":8771})");
    }

    CAgent agent_;
    CIExtensionModule* module_ = nullptr;
    int index_ = 0;
    unsigned int queued_ = 0;
};

}  // namespace

// No network: a transfer ends here, with every option set.
extern "C" CURLcode curl_easy_perform(CURL* /*handle*/) {
    return static_cast<CURLcode>(transferResult.load());
}

// Start and stop wait for tenths of a second, which are most of the time that a run takes.
extern "C" int nanosleep(const timespec* /*time*/, timespec* /*left*/) {
    return ::sched_yield();
}

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    char host[64] = {};
    ::gethostname(host, sizeof host - 1);
    Expect(std::string_view(host) == "alpha.example.net",
           "this runs on scripts/private-machine, for it writes the notification file");
    traceObjects.debugClient.SetDebugLevel(5);
    std::filesystem::create_directories(CNotificationConfig::kDirectory);
    return 0;
}

/// The notification file, "~", one step a line: a letter and a command (e event or notice, r request, a answer of the
/// agent), a number (n notification, m result of mail transfers, i command index) or nothing (s start).
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr unsigned int kMostSteps = 60;  // fewer than the queue has room for
    static const std::string path = CNotificationConfig().Path();
    CFuzzInput input(data, size);
    const std::string file = input.Text();
    std::ofstream(path) << file;
    if (file.empty()) {
        std::filesystem::remove(path);
    }
    transferResult = 0;

    CRun run;
    std::string_view rest;
    const std::string steps = input.Rest();
    rest = steps;
    for (unsigned int step = 0; step < kMostSteps && !rest.empty(); ++step) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        if (!line.empty()) {
            run.Step(line.front(), std::string(line.substr(1)));
        }
    }
    return 0;
}
