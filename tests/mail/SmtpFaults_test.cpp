#include <atomic>
#include <chrono>
#include <dlfcn.h>
#include <fstream>
#include <netdb.h>
#include <string_view>
#include <thread>

#include <curl/curl.h>
#include <gtest/gtest.h>

#include "mail/LumeString.h"
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

int Send(const char* host, unsigned short port, bool tls, const std::atomic<bool>* stopping = nullptr) {
    CSmtpMessage message;
    message.AddRecipients("anna@example.org");
    message.SetText("text");
    return CSmtp(stopping).SendMail("ops@example.org", message, host, port, "user", "x", tls);
}

}  // namespace

/// Prints what each fault came to and how long it took. Each line of the list is a fault: its name, the host, the
/// longest time that it may cost (15 s for the transfer, 1 s for the farewell, and something for a busy machine), TLS,
/// whether the mail is sent, and the server's options.
TEST(SmtpFaults, CostABoundedTimeAndNeverLookLikeSuccess) {
    std::ifstream list(EM_MAIL_DATA "/faults");
    std::vector<std::jthread> threads;
    for (std::string line; std::getline(list, line);) {
        threads.emplace_back([line] {
            std::vector<std::string> fault;
            CLumeString(line).Split(fault, "\t");
            const CSmtpServer server({fault.begin() + 5, fault.end()});
            const auto start = std::chrono::steady_clock::now();
            const int result = Send(fault[1].c_str(), server.Port(), fault[3] == "true");
            const double time = Seconds(std::chrono::steady_clock::now() - start).count();
            EXPECT_EQ(result == CURLE_OK, fault[4] == "true") << line << ": " << result;
            EXPECT_LT(time, std::stod(fault[2])) << line;
            EXPECT_EQ(server.WaitForMails(0).size(), fault[4] == "true" ? 1U : 0U) << line;
            std::printf("%-40s result %2d, %5.1f s\n", fault[0].c_str(), result, time);
        });
    }
    EXPECT_EQ(threads.size(), 24U);
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
