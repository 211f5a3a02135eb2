// What ipfw and ipfw-enforcer say to each other, on strings: the enforcer's answers on
// the model kernel, and what either side refuses to read.
#include <gtest/gtest.h>

#include "ModelKernel.h"
#include "ipfwnft/EnforcerProtocol.h"

namespace {

using ipfwnft::KernelRule;
using ipfwnft::RequestKind;

struct Answer {
    ipfwsim::Status status;
    std::string text;
};

Answer Ask(nfttest::ModelKernel& kernel, RequestKind kind, const std::string& text) {
    Answer answer;
    answer.status = ipfwnft::answerRequest(kernel, static_cast<uint32_t>(kind), text, answer.text);
    return answer;
}

TEST(EnforcerProtocol, ScriptsRunAndChainsListAsTheKernelHasThem) {
    nfttest::ModelKernel kernel;
    const std::string script =
        "table inet ipfw_s0 {\n\tchain rules_in_b12 {\n\t}\n}\n"
        "add rule inet ipfw_s0 rules_in_b12 meta l4proto 6 drop comment \"3100.0\"\n"
        "add rule inet ipfw_s0 rules_in_b12 accept comment \"3110.0\"\n";
    EXPECT_TRUE(Ask(kernel, RequestKind::Apply, script).status.ok());
    EXPECT_EQ(kernel.scripts, std::vector<std::string>{script});

    const Answer listed = Ask(kernel, RequestKind::ListChain, "inet ipfw_s0\nrules_in_b12");
    ASSERT_TRUE(listed.status.ok()) << listed.status.message;
    std::vector<KernelRule> rules;
    ASSERT_TRUE(ipfwnft::decodeRules(listed.text, rules));
    ASSERT_EQ(rules.size(), 2u);
    EXPECT_EQ(rules[0].text, "meta l4proto 6 drop comment \"3100.0\"");
    EXPECT_EQ(rules[1].text, "accept comment \"3110.0\"");
    EXPECT_LT(rules[0].handle, rules[1].handle);

    // A refusal comes back with the kernel's code and words, and changes nothing.
    const Answer refused = Ask(kernel, RequestKind::Apply, "add rule inet ipfw_s9 c drop\n");
    EXPECT_EQ(refused.status.code, ipfwsim::kExitUnavailable);
    EXPECT_EQ(refused.status.message.rfind("nftables: Could not process rule", 0), 0u);
    EXPECT_EQ(refused.text, refused.status.message);
    EXPECT_EQ(kernel.scripts.size(), 1u);
    EXPECT_FALSE(Ask(kernel, RequestKind::ListChain, "inet ipfw_s0 rules_in_b12").status.ok())
        << "a chain request without its table line names no chain";
}

TEST(EnforcerProtocol, WhatDoesNotReadIsRefused) {
    nfttest::ModelKernel kernel;
    const Answer unknown = Ask(kernel, static_cast<RequestKind>('X'), "add table inet t\n");
    EXPECT_EQ(unknown.status.code, ipfwsim::kExitSoftware);
    EXPECT_EQ(unknown.text, "ipfw-enforcer: request not understood");
    EXPECT_TRUE(kernel.scripts.empty());

    std::vector<KernelRule> rules;
    for (const char* listing :
         {"12 drop", "drop\n", "x12 drop\n", "12drop\n", "99999999999999999999 drop\n"}) {
        EXPECT_FALSE(ipfwnft::decodeRules(listing, rules)) << listing;
    }
}

// nft's listing of one chain with handles shown: the rules, not the chain's own line.
TEST(EnforcerProtocol, ChainListingsGiveTheRulesAndTheirHandles) {
    const std::string listing =
        "table inet ipfw_s0 {\n"
        "\tchain rules_in_b12 { # handle 7\n"
        "\t\tmeta l4proto tcp drop comment \"3100.0\" # handle 41\n"
        "\t\tip saddr 10.0.0.1 accept comment \"3100.1\" # handle 42\n"
        "\t\tcounter packets 0 bytes 0 comment \"a # handle x\"\n"
        "\t}\n"
        "}\n";
    const std::vector<KernelRule> rules = ipfwnft::parseChainListing(listing);
    ASSERT_EQ(rules.size(), 2u);
    EXPECT_EQ(rules[0].handle, 41u);
    EXPECT_EQ(rules[0].text, "meta l4proto tcp drop comment \"3100.0\"");
    EXPECT_EQ(rules[1].handle, 42u);
    EXPECT_EQ(rules[1].text, "ip saddr 10.0.0.1 accept comment \"3100.1\"");
}

}  // namespace
