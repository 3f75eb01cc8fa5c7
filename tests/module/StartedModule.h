#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "AnsweringSwitch.h"
#include "LoadedLibrary.h"
#include "support/FakeSwitch.h"

inline constexpr char kFile[] = "/etc/kestrel/HostwardenSuite/ManagedNode/Notifications/Notifications.xml";

/// A notification file with one server.
inline void WriteSettings(const std::string& host, int port) {
    std::filesystem::create_directories(std::filesystem::path(kFile).parent_path());
    std::ofstream(kFile)
        << "<Notifications><email><Format><Sender><Address>ops@x</Address></Sender><Recipients><Recipient>"
           "<Address>anna@x</Address></Recipient></Recipients></Format><SMTP><Server><Host>"
        << host << "</Host><Port>" << port << "</Port></Server></SMTP></email></Notifications>";
}

/// The library with a module at work, everything traced, on a private machine.
class StartedModule : public ::testing::Test {
protected:
    StartedModule() {
        WriteSettings("127.0.0.1", 9);
        module_ = library_.StartModule(agent_);
    }
    ~StartedModule() override {
        EXPECT_TRUE(module_->Stop());
        EXPECT_TRUE(library_.remove());
        std::filesystem::remove_all("/etc/kestrel");
    }
    StartedModule(const StartedModule&) = delete;
    StartedModule& operator=(const StartedModule&) = delete;

    /// @return the answer's status, and its data as a number
    std::pair<unsigned int, unsigned int> Request(const std::string& members) {
        SipJson request = MessageOf("{" + members + "}");
        module_->ModuleRequest(request);
        unsigned int data = 0;
        request.GetCmdUIntData(0, data);
        return {request.GetCmdElemValue(0, "ST", 999), data};
    }
    /// Events and notices.
    void Event(const std::string& members = R"("OC":"0x2322","OE":3,"DA":3)") {
        SipJson event = MessageOf("{" + members + "}");
        module_->ApplicationReply(event);
    }

    const std::pair<unsigned int, unsigned int> kPending{0, 1};
    const int traced_ = ::setenv("LUME_LOG_DEBUG_LEVEL", "5", 1);
    const CLoadedLibrary library_;
    CAnsweringSwitch agent_;
    CIExtensionModule* module_ = nullptr;
};
