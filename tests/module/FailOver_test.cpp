#include "AgentRun.h"

namespace {

constexpr char kTwoServers[] =
    "<Notifications><email><Format><Sender><Address>ops@x</Address></Sender><Recipients><Recipient><Address>anna@x"
    "</Address></Recipient></Recipients></Format><SMTP><Server><Host>127.0.0.1</Host><Port>@PORT0@</Port>"
    "<SMTPS>@TLS@</SMTPS>@LOGIN@</Server><Server><Host>ops:geheim@127.0.0.1</Host><Port>@PORT1@</Port></Server></"
    "SMTP></email>"
    "</Notifications>";
constexpr char kLogin[] =
    "<Authentication Type=\"smtp\"><UserName>ops</UserName><Password>wrong</Password></Authentication>";
constexpr char kNamelessLogin[] = "<Authentication Type=\"smtp\"></Authentication>";

/// What the first of two servers does, and what the trace says of it then.
struct Failure {
    const char* name;
    std::vector<std::string> options;
    const char* trace;
    bool tls = false;
    const char* login = "";
};

void PrintTo(const Failure& failure, std::ostream* out) {
    *out << failure.name;
}

const Failure kFailures[] = {
    {"Greeting", {"--reply", "CONNECT=554 go away"}, "step connect"},
    {"NoStartTls", {}, "(64)", true},
    {"UntrustedCertificate", {"--tls", "starttls"}, "(60)", true},
    {"LogIn", {"--auth", "ops:right"}, "(67)", false, kLogin},
    {"LogInWithoutAName", {"--auth", "ops:right"}, "(67)", false, kNamelessLogin},
    {"Mail", {"--reply", "MAIL=451 later"}, "451 later"},
    {"Recipient", {"--reply", "RCPT=550 unknown"}, "550 unknown"},
    {"Data", {"--reply", "DATA=554 no"}, "554 no"},
    {"AfterData", {"--reply", "DOT=554 spam"}, "554 spam"},
    {"Hanging", {"--hang", "MAIL"}, "(28)"},
};

class FailOver : public AgentRun {
protected:
    /// Sends one test mail through two servers, the first with these options.
    int Send(const Failure& failure, const std::string& scenario) {
        StartServer(failure.options);
        StartServer({});
        const std::string settings = ReplaceAll(kTwoServers, "@TLS@", failure.tls ? "true" : "false");
        WriteNotificationFile(ReplaceAll(settings, "@LOGIN@", failure.login));
        std::ofstream(out_ / "state.json") << R"([{"OC":"0xE001","OE":"0x041B","DA":"$_IDN"}])";
        std::ofstream(out_ / "scenario.jsonl") << scenario;
        return RunAgent(out_ / "state.json", out_ / "scenario.jsonl");
    }

    static constexpr const char* kTestMail = R"({"request":{"OC":"0x2242","OE":1}}
{"await":{"kind":"reply","OC":"0x2242","DA":0},"ms":40000}
)";
};

class FailOverAt : public FailOver, public ::testing::WithParamInterface<Failure> {};

}  // namespace

TEST_P(FailOverAt, TheSecondServerGetsTheMailOnce) {
    EXPECT_EQ(Send(GetParam(), kTestMail), 0);
    EXPECT_EQ(servers_[0]->WaitForMails(0).size(), 0U);
    EXPECT_EQ(servers_[1]->WaitForMails(1).size(), 1U);
    const std::string trace = WithoutPorts(Read(out_ / "trace"));
    const std::size_t start = trace.find("ERROR! Server \"smtp://127.0.0.1:@PORT0@\"");
    ASSERT_NE(start, std::string::npos) << trace;
    const std::string line = trace.substr(start, trace.find('\n', start) - start);
    EXPECT_NE(line.find(GetParam().trace), std::string::npos) << line;
    EXPECT_EQ(trace.find("geheim"), std::string::npos) << trace;
}

INSTANTIATE_TEST_SUITE_P(Step, FailOverAt, ::testing::ValuesIn(kFailures),
                         [](const auto& failure) { return failure.param.name; });

TEST_F(FailOver, AMailThatTheFirstServerTookIsNotSentAgain) {
    EXPECT_EQ(Send({"SilentFarewell", {"--hang", "QUIT"}, ""}, kTestMail), 0);
    EXPECT_EQ(servers_[0]->WaitForMails(0).size(), 1U);
    EXPECT_EQ(servers_[1]->Commands(), "");
}

TEST_F(FailOver, AStopEndsTheRound) {
    EXPECT_EQ(Send({"Hanging", {"--hang", "DATA"}, ""}, R"({"request":{"OC":"0x2242","OE":1}}
{"await":{"kind":"sync-request","OC":"0x0C00"}}
{"wait":500}
)"),
              0);
    EXPECT_NE(Read(out_ / "trace").find("(42)"), std::string::npos) << "the transfer ended by itself";
    EXPECT_EQ(servers_[1]->Commands(), "");
}
