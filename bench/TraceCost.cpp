// SPDX-License-Identifier: Apache-2.0

// A run through the module with tracing switched off, for a tool that counts instructions: status events, the mail that
// tells of one, and the files that hold settings. Built twice, with the product's traces and without any.

#include "bench/BareMessage.h"
#include "bench/WarningSwitch.h"
#include "em_alert/alert/AlertExtensionModule.h"
#include "notification/FileLock.h"
#include "platform/ini/IniFile.h"
#include "testing/TempDirectory.h"

namespace {

constexpr int kRounds = 200;

}  // namespace

extern "C" [[gnu::noinline]] void MeasuredWork(CAlertExtensionModule& module, SipJson& event,
                                               const CTempDirectory& directory, const std::string& ini) {
    for (int i = 0; i < kRounds; ++i) {
        module.ApplicationReply(event);
        CLumeString text("$(ComponentName) ($(ComponentDesignation)) is $(ComponentStatus): $(SystemModel)");
        module.AlerterFormatSystemStatusText(text, 2, 2, "CPU 1 fan", "Fan 1");
        CIniFile(ini.c_str()).GetNumber("Section", "Key", 0);
        CNotificationConfig config(directory.Path(), "Notifications.xml");
        CFileLock lock;
        lock.Lock(config.Path().c_str(), nullptr, CNotificationConfig::kLockTimeoutMs);
        config.Load();
        config.GetRecipients(text, ";");
    }
}

int main() {
    const CTempDirectory directory("/tmp");
    const std::string ini = directory.Write("settings.ini", "[Section]\nKey=1\n");
    CNotificationConfig config(directory.Path(), "Notifications.xml");
    config.SetRecipients("operator@example.com", ";");
    config.Save();
    CWarningSwitch agent;
    CAlertExtensionModule module;
    module.Start(&agent, 1);
    SipJson event = StatusEvent();
    MeasuredWork(module, event, directory, ini);
    module.Stop();
    return 0;
}
