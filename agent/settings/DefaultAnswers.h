// SPDX-License-Identifier: Apache-2.0
#pragma once

/// What this command answers to the module where nobody has said anything else: texts that make a mail which a person
/// wants to get.
constexpr const char* kDefaultAnswers =
    R"json([
  {"OC":"0xE001","OE":"0x0411","DA":2},
  {"OC":"0xE001","OE":"0x0416","DA":"$(ComponentStatus): $(ComponentName) on $(HostName)"},
  {"OC":"0xE001","OE":"0x0417","DA":"$(ComponentDesignation) ($(ComponentName)) of $(HostNameFQ): $(ComponentStatus))json"
    R"json(\n\nServer status: $(SystemStatus)\nTime: $(Date) $(Time)\n\n)json"
    R"json(Sent by em_alert. \"em-alert pending\" on the server shows what waits to be acknowledged.\n"},
  {"OC":"0xE001","OE":"0x041A","DA":"Updates for $(HostName)"},
  {"OC":"0xE001","OE":"0x041B","DA":"$(UpdateMessage)\n\nServer: $(HostNameFQ)\nTime: $(Date) $(Time)\n"},
  {"OC":"0x0B21","DA":"The update manager has a message for this server."}
])json";
