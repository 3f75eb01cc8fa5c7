// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <systemd/sd-daemon.h>

#include "agent/core/Files.h"
#include "agent/core/ModuleLibrary.h"
#include "agent/traces/ModuleTraces.h"
#include "agent/traces/TraceSink.h"
#include "platform/diagnostics/DebugTraceConfig.h"
#include "platform/process/Process.h"
#include "service/checks/Once.h"
#include "service/control/ControlCommands.h"
#include "service/core/Service.h"
#include "service/loop/Journal.h"

namespace {

constexpr int kFailed = 1;
constexpr int kWrongUse = 2;

// A call of the module may take as long as two mail servers are silent; only what takes longer is stuck.
constexpr std::chrono::seconds kLongestCall{300};

/// Feeds systemd's watchdog as long as both the loop and the module's thread move.
class CWatchdog {
public:
    CWatchdog(CLoop& loop, const CService& service) : loop_(loop), service_(service) {
        std::uint64_t microseconds = 0;
        if (::sd_watchdog_enabled(0, &microseconds) > 0) {
            interval_ = std::chrono::milliseconds(microseconds / 2000);
            Feed();
        }
    }

private:
    void Feed() {
        if (service_.ModuleBusy() < kLongestCall) {
            ::sd_notify(0, "WATCHDOG=1");
        }
        timer_ = loop_.After(interval_, [this] { Feed(); });
    }

    CLoop& loop_;
    const CService& service_;
    std::chrono::milliseconds interval_{0};
    CLoopSource timer_;
};

void WarnOfSilence() {
    if (CDebugTraceConfig::IsOffBy(CDebugTraceConfig::kDirectory)) {
        Journal(4, std::string("the results of mails are not known, and none is tried again: ") +
                       CDebugTraceConfig::kDirectory +
                       " is there and holds no .ini file, which switches all traces off");
    }
}

void PrepareSignals() {
    std::signal(SIGPIPE, SIG_IGN);  // who reads what is printed may go; plugins get the default back
    sigset_t signals;
    ::sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        ::sigaddset(&signals, signal);
    }
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void Run(const ServiceOptions& options, ServiceConfig config) {
    SetTraceLevel(std::nullopt);
    WarnOfSilence();
    CLoop loop;
    CService service(loop, options, std::move(config));
    CControlCommands commands(loop, service, options.socket);
    service.Start(commands.Listener());
    const CLoopSource terminated = loop.OnSignal(SIGTERM, [&] { loop.Stop(); });
    const CLoopSource interrupted = loop.OnSignal(SIGINT, [&] { loop.Stop(); });
    const CLoopSource hungUp = loop.OnSignal(SIGHUP, [&] {
        ::sd_notify(0, "RELOADING=1");
        service.Reload();
        ::sd_notify(0, "READY=1");
    });
    ::sd_notify(0, "READY=1");
    const CWatchdog watchdog(loop, service);
    loop.Run();
    ::sd_notify(0, "STOPPING=1");
    service.Stop();
}

int RunCommandLine(int argc, char** argv) {
    CLI::App app("Watches this server with the Monitoring Plugins, and alerts by mail and speaker.", "em-alertd");
    ServiceOptions options{.config = kServiceConfigFile,
                           .socket = "/run/em-alert/control",
                           .state = "/var/lib/em-alert",
                           .module = {},
                           .showsTraces = IsTraceLevelSet()};
    bool once = false;
    const CLI::Validator path([](const std::string& text) { return text.empty() ? "a path is not empty" : ""; }, "");
    app.add_option("--config", options.config, "the configuration")->capture_default_str()->check(path);
    app.add_option("--socket", options.socket, "where em-alert connects")->capture_default_str()->check(path);
    app.add_option("--state", options.state, "the directory of what outlives a restart")
        ->capture_default_str()
        ->check(path);
    app.add_option("--module", options.module, "the alert module; the installed one unless told otherwise");
    app.add_flag("--once", once, "run each check once, tell the result and end");
    app.set_version_flag("--version", EM_VERSION);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : kWrongUse;
    }
    ServiceConfig config;
    std::vector<ConfigMistake> mistakes;
    if (!ReadServiceConfig(options.config, config, mistakes)) {
        for (const ConfigMistake& mistake : mistakes) {
            Journal(3, MistakeText(options.config, mistake));
        }
        return kWrongUse;
    }
    PrepareSignals();
    if (once) {
        return CheckOnce(config) ? EXIT_SUCCESS : kFailed;
    }
    if (options.module.empty()) {
        options.module = FindModule(EM_INSTALLED_MODULE);
    }
    Run(options, std::move(config));
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    KeepStandardDescriptors();
    std::signal(SIGCHLD, SIG_DFL);  // ignored, as a program before may have left it, it would hide how plugins end
    CProcess::RaiseDescriptorLimit();
    try {
        return RunCommandLine(argc, argv);
    } catch (const std::exception& error) {
        Journal(3, error.what());
        return kFailed;
    }
}
