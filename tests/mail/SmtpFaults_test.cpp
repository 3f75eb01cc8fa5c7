#include <atomic>
#include <chrono>
#include <dlfcn.h>
#include <iostream>
#include <netdb.h>
#include <string_view>
#include <thread>

#include <curl/curl.h>
#include <gtest/gtest.h>

#include "mail/Smtp.h"
#include "support/SmtpServer.h"

// This program's resolver, which libcurl uses as well.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name, const char* service,
                                                                  const addrinfo* hints, addrinfo** found) {
    static const auto real = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    if (std::string_view(name) == "fails.example") {
        return EAI_AGAIN;
    }
    if (std::string_view(name) == "hangs.example") {
        std::this_thread::sleep_for(std::chrono::minutes(2));
    }
    return real(name, service, hints, found);
}

namespace {

using Seconds = std::chrono::duration<double>;

/// What a server does, or a name that is looked up, and the longest time that it may cost: 15 s for the transfer, 1 s
/// for the farewell, and something for a busy machine.
struct Fault {
    const char* name;
    std::vector<std::string> options;
    const char* host = nullptr;
    double longest = 20;
    bool tls = false;
    bool isSent = false;
};

const Fault kFaults[] = {
    {"silent: greeting", {"--hang", "CONNECT"}},
    {"silent: EHLO and HELO", {"--hang", "EHLO", "--hang", "HELO"}},
    {"silent: STARTTLS", {"--tls", "starttls", "--hang", "STARTTLS"}, nullptr, 20, true},
    {"silent: AUTH", {"--auth", "user:x", "--hang", "AUTH"}},
    {"silent: MAIL", {"--hang", "MAIL"}},
    {"silent: RCPT", {"--hang", "RCPT"}},
    {"silent: DATA", {"--hang", "DATA"}},
    {"silent: after the final dot", {"--hang", "DOT"}},
    {"silent: QUIT", {"--hang", "QUIT"}, nullptr, 8, false, true},
    {"dripping: greeting", {"--drip", "CONNECT"}},
    {"dripping: RCPT", {"--drip", "RCPT"}},
    {"dripping: after the final dot", {"--drip", "DOT"}},
    {"dripping: QUIT", {"--drip", "QUIT"}, nullptr, 8, false, true},
    {"line without end: greeting", {"--endless", "CONNECT"}},
    {"line without end: after the final dot", {"--endless", "DOT"}},
    {"reset: greeting", {"--reset", "CONNECT"}, nullptr, 8},
    {"reset: DATA", {"--reset", "DATA"}, nullptr, 8},
    {"reset: after the final dot", {"--reset", "DOT"}, nullptr, 8},
    {"reset: QUIT", {"--reset", "QUIT"}, nullptr, 8, false, true},
    {"garbage: greeting", {"--reply", "CONNECT=\xFF\x01garbage"}},
    {"garbage: MAIL", {"--reply", "MAIL=999999999999 \xC3\x28"}},
    {"garbage: after the final dot", {"--reply", "DOT=hello"}},
    {"look-up that fails", {}, "fails.example", 8},
    {"look-up without end", {}, "hangs.example"},
};

int Send(const char* host, unsigned short port, bool tls, const std::atomic<bool>* stopping = nullptr) {
    CSmtpMessage message;
    message.AddRecipients("anna@example.org");
    message.SetText("text");
    return CSmtp(stopping).SendMail("ops@example.org", message, host, port, "user", "x", tls);
}

}  // namespace

/// Prints what each fault came to and how long it took.
TEST(SmtpFaults, CostABoundedTimeAndNeverLookLikeSuccess) {
    std::vector<std::jthread> threads;
    std::vector<std::string> lines(std::size(kFaults));
    for (std::size_t i = 0; i < std::size(kFaults); ++i) {
        threads.emplace_back([&fault = kFaults[i], &line = lines[i]] {
            const CSmtpServer server(fault.options);
            const auto start = std::chrono::steady_clock::now();
            const int result = Send(fault.host != nullptr ? fault.host : "127.0.0.1", server.Port(), fault.tls);
            const Seconds time = std::chrono::steady_clock::now() - start;
            EXPECT_EQ(result == CURLE_OK, fault.isSent) << fault.name << ": " << result;
            EXPECT_LT(time.count(), fault.longest) << fault.name;
            EXPECT_EQ(server.WaitForMails(0).size(), fault.isSent ? 1U : 0U) << fault.name;
            char text[100];
            std::snprintf(text, sizeof text, "%-40s result %2d, %5.1f s\n", fault.name, result, time.count());
            line = text;
        });
    }
    threads.clear();
    for (const std::string& line : lines) {
        std::cout << line;
    }
}

TEST(SmtpFaults, AStopDoesNotWaitForALookUp) {
    std::atomic<bool> stopping{false};
    std::jthread stopper([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        stopping = true;
    });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Send("hangs.example", 25, false, &stopping), CURLE_ABORTED_BY_CALLBACK);
    EXPECT_LT(Seconds(std::chrono::steady_clock::now() - start).count(), 3);
}
