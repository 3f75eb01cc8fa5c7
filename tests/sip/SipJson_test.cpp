#include "sip/SipJson.h"

#include <gtest/gtest.h>
TEST(SipJson, FreshMessageHoldsNoCommand) {
    std::string text;
    ASSERT_TRUE(SipJson().GetJson(text));
    EXPECT_EQ(text, R"({"SIP":{"V":1,"CMD":[]}})");
}
