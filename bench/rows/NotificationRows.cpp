// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <pugixml.hpp>

#include "bench/Row.h"
#include "bench/SyncCount.h"
#include "notification/FileLock.h"
#include "notification/NotificationConfig.h"
#include "testing/TempDirectory.h"

namespace {

constexpr const char* kFile = "Notifications.xml";

std::string Recipients(int count) {
    std::string list;
    for (int i = 0; i < count; ++i) {
        list += (i == 0 ? "" : ";") + ("operator" + std::to_string(i)) + "@example.com";
    }
    return list;
}

void FillIn(CNotificationConfig& config, int recipients) {
    config.SetSender("server@example.com");
    config.SetSenderDescription("The server");
    config.SetRecipients(Recipients(recipients), ";");
    config.SetRecipientsCc("head@example.com", ";");
    for (int i = 0; i < 2; ++i) {
        config.SetSmtpServer("mail" + std::to_string(i) + ".example.com", i);
        config.SetSmtpServerPort(25, i);
        config.SetSmtpServerSMTPS(false, i);
        config.SetSmtpServerAuthenticationType(CNotificationConfig::AuthenticationType::None, i);
    }
}

void MakeFile(const CTempDirectory& directory) {
    CNotificationConfig config(directory.Path(), kFile);
    FillIn(config, 3);
    config.Save();
}

void LoadProject(benchmark::State& state) {
    const CTempDirectory directory("/tmp");
    MakeFile(directory);
    Measure(state, [&] {
        CNotificationConfig config(directory.Path(), kFile);
        config.Load();
        std::string texts[6];
        unsigned short ports[2] = {};
        bool tls[2] = {};
        config.GetSender(texts[0]);
        config.GetSenderDescription(texts[1]);
        config.GetRecipients(texts[2], ";");
        config.GetRecipientsCc(texts[3], ";");
        for (int i = 0; i < 2; ++i) {
            config.GetSmtpServer(texts[4 + i], i);
            config.GetSmtpServerPort(ports[i], i);
            config.GetSmtpServerSMTPS(tls[i], i);
        }
        benchmark::DoNotOptimize(texts);
        benchmark::DoNotOptimize(ports);
        benchmark::DoNotOptimize(tls);
    });
}

std::string Joined(const pugi::xml_node& list, const char* name) {
    std::string joined;
    for (const pugi::xml_node& item : list.children(name)) {
        joined += (joined.empty() ? "" : ";") + std::string(item.child_value("Address"));
    }
    return joined;
}

void LoadFloor(benchmark::State& state) {
    const CTempDirectory directory("/tmp");
    MakeFile(directory);
    const std::string path = directory / kFile;
    Measure(state, [&] {
        pugi::xml_document document;
        // As the project parses it: a file that is saved again keeps its comments and blanks.
        document.load_file(path.c_str(), pugi::parse_full | pugi::parse_ws_pcdata_single);
        const pugi::xml_node email = document.child("Notifications").child("email");
        const pugi::xml_node format = email.child("Format");
        std::string texts[6] = {
            format.child("Sender").child_value("Address"),
            format.child("Sender").child_value("Description"),
            Joined(format.child("Recipients"), "Recipient"),
            Joined(format.child("RecipientsCC"), "RecipientCC"),
        };
        unsigned int ports[2] = {};
        bool tls[2] = {};
        pugi::xml_node server = email.child("SMTP").child("Server");
        for (int i = 0; i < 2; ++i, server = server.next_sibling("Server")) {
            texts[4 + i] = server.child_value("Host");
            ports[i] = server.child("Port").text().as_uint();
            tls[i] = server.child("SMTPS").text().as_bool();
        }
        benchmark::DoNotOptimize(texts);
        benchmark::DoNotOptimize(ports);
        benchmark::DoNotOptimize(tls);
    });
}

void SaveProject(benchmark::State& state) {
    const CTempDirectory directory("/tmp");
    CNotificationConfig config(directory.Path(), kFile);
    FillIn(config, 3);
    const int before = SyncCalls();
    config.Save();
    state.counters["syncs"] = SyncCalls() - before;
    Measure(state, [&] { config.Save(); });
}

/// The text is ready; a temporary file, its sync, the rename, and the sync that makes the rename last.
void SaveFloor(benchmark::State& state) {
    const CTempDirectory directory("/tmp");
    CNotificationConfig config(directory.Path(), kFile);
    FillIn(config, 3);
    const std::string text = config.GetDocFormatted();
    const std::string path = directory / kFile;
    const std::string temporary = path + ".new";
    const auto save = [&] {
        const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        benchmark::DoNotOptimize(::write(fd, text.data(), text.size()));
        ::fsync(fd);
        ::close(fd);
        ::rename(temporary.c_str(), path.c_str());
        const int folder = ::open(directory.Path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::fsync(folder);
        ::close(folder);
    };
    const int before = SyncCalls();
    save();
    state.counters["syncs"] = SyncCalls() - before;
    Measure(state, save);
}

/// Load, read and replace the recipients, format: all that grows with the file, without the disk.
void ManyRecipients(benchmark::State& state, int count) {
    const std::string list = Recipients(count);
    CNotificationConfig original;
    FillIn(original, count);
    const std::string text = original.GetDocFormatted();
    Measure(state, [&] {
        CNotificationConfig config;
        config.SetDoc(text);
        std::string out;
        config.GetRecipients(out, ";");
        config.SetRecipients(list, ";");
        benchmark::DoNotOptimize(config.GetDocFormatted());
    });
}

void LockProject(benchmark::State& state) {
    const CTempDirectory directory("/tmp");
    const std::string path = directory / kFile;
    Measure(state, [&] {
        CFileLock lock;
        lock.Lock(path.c_str(), nullptr, CNotificationConfig::kLockTimeoutMs);
        lock.UnlockFile(path.c_str());
    });
}

void LockFloor(benchmark::State& state) {
    const CTempDirectory directory("/tmp");
    const std::string path = directory / kFile + std::string(".lock");
    Measure(state, [&] {
        const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        ::flock(fd, LOCK_EX | LOCK_NB);
        const std::string holder = "#" + std::to_string(::getpid());
        benchmark::DoNotOptimize(::write(fd, holder.data(), holder.size()));
        ::fsync(fd);
        ::unlink(path.c_str());
        ::close(fd);
    });
}

}  // namespace

void AddNotificationRows() {
    AddRow("notification/load-and-read", Clock::Cpu, LoadProject, LoadFloor);
    AddRow("notification/save", Clock::Real, SaveProject, SaveFloor);
    AddRow(
        "notification/ten-times-the-recipients", Clock::Cpu,
        [](benchmark::State& state) { ManyRecipients(state, 10000); },
        [](benchmark::State& state) { ManyRecipients(state, 1000); });
    AddRow("lock-file/lock-and-release", Clock::Real, LockProject, LockFloor);
}
