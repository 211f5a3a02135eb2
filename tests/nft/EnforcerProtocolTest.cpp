// What ipfw and ipfw-enforcer say to each other, on strings: the enforcer's answers on
// the model kernel as ipfw reads them, and what either side refuses to read.
#include <gtest/gtest.h>

#include "ModelKernel.h"
#include "ipfwnft/EnforcerProtocol.h"

namespace {

using ipfwnft::EnforcerRequest;
using ipfwnft::KernelRule;
using ipfwnft::RequestKind;

struct Answer {
    ipfwsim::Status status;
    std::string text;
};

Answer Ask(nfttest::ModelKernel& kernel, const EnforcerRequest& request) {
    Answer answer;
    const std::string reply = ipfwnft::answerRequest(kernel, ipfwnft::encodeRequest(request));
    EXPECT_TRUE(ipfwnft::decodeReply(reply, answer.status, answer.text));
    return answer;
}

TEST(EnforcerProtocol, ScriptsRunAndChainsListAsTheKernelHasThem) {
    nfttest::ModelKernel kernel;
    const std::string script =
        "table inet ipfw_s0 {\n\tchain rules_in_b12 {\n\t}\n}\n"
        "add rule inet ipfw_s0 rules_in_b12 meta l4proto 6 drop comment \"3100.0\"\n"
        "add rule inet ipfw_s0 rules_in_b12 accept comment \"3110.0\"\n";
    EXPECT_TRUE(Ask(kernel, {RequestKind::Apply, script}).status.ok());
    EXPECT_EQ(kernel.scripts, std::vector<std::string>{script});

    const Answer listed = Ask(kernel, {RequestKind::ListChain, "inet ipfw_s0\nrules_in_b12"});
    ASSERT_TRUE(listed.status.ok()) << listed.status.message;
    std::vector<KernelRule> rules;
    ASSERT_TRUE(ipfwnft::decodeRules(listed.text, rules));
    ASSERT_EQ(rules.size(), 2u);
    EXPECT_EQ(rules[0].text, "meta l4proto 6 drop comment \"3100.0\"");
    EXPECT_EQ(rules[1].text, "accept comment \"3110.0\"");
    EXPECT_LT(rules[0].handle, rules[1].handle);

    // A refusal comes back with the kernel's code and words, and changes nothing.
    const Answer refused = Ask(kernel, {RequestKind::Apply, "add rule inet ipfw_s9 c drop\n"});
    EXPECT_EQ(refused.status.code, ipfwsim::kExitUnavailable);
    EXPECT_EQ(refused.status.message.rfind("nftables: Could not process rule", 0), 0u);
    EXPECT_EQ(kernel.scripts.size(), 1u);
    EXPECT_FALSE(Ask(kernel, {RequestKind::ListChain, "inet ipfw_s0 rules_in_b12"}).status.ok())
        << "a chain request without its table line names no chain";
}

TEST(EnforcerProtocol, WhatDoesNotReadIsRefused) {
    nfttest::ModelKernel kernel;
    for (const std::string& body : {std::string(), std::string("X add table inet t\n")}) {
        ipfwsim::Status status;
        std::string text;
        ASSERT_TRUE(ipfwnft::decodeReply(ipfwnft::answerRequest(kernel, body), status, text));
        EXPECT_EQ(status.code, ipfwsim::kExitSoftware) << body;
    }
    EXPECT_TRUE(kernel.scripts.empty());

    ipfwsim::Status status;
    std::string text;
    EXPECT_FALSE(ipfwnft::decodeReply("\0\0\0", status, text)) << "shorter than its code";
    std::vector<KernelRule> rules;
    for (const char* listing :
         {"12 drop", "drop\n", "x12 drop\n", "12drop\n", "99999999999999999999 drop\n"}) {
        EXPECT_FALSE(ipfwnft::decodeRules(listing, rules)) << listing;
    }
    uint32_t length = 0;
    const std::string fits = ipfwnft::frameHeader(ipfwnft::kMaxFrame);
    const std::string over = ipfwnft::frameHeader(ipfwnft::kMaxFrame + 1);
    char header[4];
    std::copy(fits.begin(), fits.end(), header);
    EXPECT_TRUE(ipfwnft::readFrameHeader(header, length));
    EXPECT_EQ(length, ipfwnft::kMaxFrame);
    std::copy(over.begin(), over.end(), header);
    EXPECT_FALSE(ipfwnft::readFrameHeader(header, length));
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
