// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cctype>

#include "agent/settings/Settings.h"
#include "command/CommandLine.h"
#include "command/ProgramOptionTable.h"
#include "command/commands/CommandTable.h"

namespace {

// Text for mdoc: what looks like a request, or like an escape, is told from it.
std::string Plain(std::string_view text) {
    std::string plain;
    for (const char c : text) {
        const bool atStart = plain.empty() || plain.back() == '\n';
        plain += (c == '.' || c == '\'') && atStart ? "\\&" : "";
        plain += c == '\\' ? "\\e" : c == '-' ? "\\-" : std::string(1, c);
    }
    return plain;
}

std::string Sentence(std::string_view text) {
    std::string sentence = Plain(text);
    sentence.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(sentence.front())));
    return sentence + ".\n";
}

// Words that begin with a capital are to be replaced, the others are typed as they are.
std::string Arguments(std::string_view arguments) {
    return arguments.empty() ? std::string() : " " + Plain(arguments);
}

// Lists of names stand in sections of their own.
std::string More(const CommandRow& row) {
    constexpr std::string_view kBeforeList = " The names:\n";
    const std::string_view more = row.more;
    return more.ends_with(kBeforeList)
               ? Plain(more.substr(0, more.size() - kBeforeList.size())) + "\nThe names are listed below.\n"
               : Plain(more);
}

std::string Commands(bool ofConsole) {
    std::string text;
    for (const CommandRow& row : CommandTable()) {
        if ((row.needs == CommandRow::Needs::Console) == ofConsole) {
            text += ".It Ic " + Plain(row.name) + Arguments(row.arguments) + "\n" + Sentence(row.help) + More(row) +
                    (row.needs == CommandRow::Needs::Service ? "Needs the service.\n" : "");
        }
    }
    return text;
}

std::string Settings(std::span<const OperatorSetting> settings) {
    std::string text;
    for (const OperatorSetting& setting : settings) {
        text +=
            ".It Cm " + Plain(setting.name) + (setting.IsPerServer() ? " 1|2" : "") + "\n" + Sentence(setting.meaning);
    }
    return text;
}

std::string Options() {
    std::string text;
    for (const ProgramOptionRow& row : ProgramOptionTable()) {
        text += ".It Cm " + Plain(row.names) + (row.value.empty() ? "" : " Ar ") + std::string(row.value) + "\n" +
                Sentence(row.help);
    }
    return text;
}

constexpr const char* kHead = R"(.\" Made by em-alert itself from its table of commands.
.Dd November 25, 2026
.Dt EM-ALERT 1
.Os Linux
.Sh NAME
.Nm em-alert
.Nd set up, try and follow the alerts of this server
.Sh SYNOPSIS
.Nm
.Op Ar options
.Op Ar command ...
.Sh DESCRIPTION
.Nm
does one thing for the one command that it is given, and tells by its exit status whether that was done.
Without a command it is a console: one command a line, words with blanks in double quotes.
Where the service
.Nm em-alertd
answers at its control socket it is asked; otherwise
.Nm
loads the alert module itself, for as long as it runs.
.Pp
An argument that looks like an option is refused where it is none; behind
.Ql \-\-
every one is taken as it is.
.Pp
The options are:
.Bl -tag -width Ds
)";

constexpr const char* kTail = R"(.El
.Sh ENVIRONMENT
.Bl -tag -width Ds
.It Ev LUME_LOG_DEBUG_LEVEL
A trace level that goes before
.Cm \-\-trace .
.It Ev NO_COLOR
When it is set and not empty, nothing is coloured.
.It Ev XDG_STATE_HOME
Where the user's state is kept, instead of
.Pa ~/.local/state .
.El
.Sh FILES
.Bl -tag -width Ds
.It Pa /etc/kestrel/HostwardenSuite/ManagedNode/Notifications/Notifications.xml
The mail settings, which other programs share.
.It Pa /etc/kestrel/HostwardenSuite/TraceConfig
The trace settings.
An empty directory switches all traces off.
.It Pa /run/em-alert/control
The control socket of the service.
.It Pa ~/.local/state/em-alert/settings.json
The alert settings, when no service keeps them.
.It Pa ~/.local/state/em-alert/history
The history of the console; lines with passwords are left out.
.It Pa ~/.editrc
Keys of the console, see
.Xr editrc 5 .
.El
.Sh EXIT STATUS
.Bl -tag -width Ds
.It 0
Done.
A mail was taken by a server, for every recipient.
.It 1
It failed; the reason is on standard error.
A console that reads a pipe ends with 1 when any of its commands failed.
.It 2
The command line is wrong.
.El
.Sh EXAMPLES
Set a mail server up and try it:
.Bd -literal -offset indent
em-alert set host 1 mail.example.net
em-alert set sender 'Server alerts<alerts@example.net>'
em-alert set recipients you@example.net
em-alert test\-mail
.Ed
.Pp
Try the second server alone, with the dialogue:
.Pp
.Dl em-alert test\-mail \-\-server 2 \-v
.Pp
A password that stands in no history and no list of processes:
.Pp
.Dl em-alert set password 1 </root/mail\-password
.Pp
Report from a script:
.Pp
.Dl em-alert submit backup 2 \(dqthe tape is full\(dq
.Sh SEE ALSO
.Xr em-alert-agent 1 ,
.Xr em-alertd 8
)";

}  // namespace

std::string ManualPage() {
    return kHead + Options() + ".El\n.Sh COMMANDS\n.Bl -tag -width Ds\n" + Commands(false) +
           ".El\n.Pp\nIn the console there are besides:\n.Bl -tag -width Ds\n" + Commands(true) +
           ".El\n.Pp\nAt a terminal, Ctrl-C clears the line, and twice in a row or Ctrl-D ends the console.\n"
           ".Ss Mail settings\nFor\n.Ic get\nand\n.Ic set .\n1 and 2 are the mail servers, which are tried in turn.\n"
           ".Bl -tag -width Ds\n" +
           Settings(MailServerSettings()) + ".El\n.Ss Alert settings\nFor\n.Ic setting .\n.Bl -tag -width Ds\n" +
           Settings(AlertSettings()) + kTail;
}
