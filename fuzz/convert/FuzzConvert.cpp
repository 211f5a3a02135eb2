// Property lists of arbitrary bytes converted into the stored messages (a rule, a rule
// list, the options), from the root dictionary and from the entries "FwRuleCfg",
// "FwExceptionRuleCfg" and "FwOptions" under it, as the store reads them. A message
// that converts must convert back and forth unchanged, and a stored rule must yield rule
// text the shell cannot act on: stored rules are installed at every start.
#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <string>

#include "FuzzPlist.h"
#include "FuzzWorld.h"
#include "RuleFieldsReader.h"
#include "RuleGenerator.h"
#include "ShellInert.h"
#include "VelaFwInternalMsgConvert.h"
#include "VelaFwMsgConvert.h"

namespace {

using namespace qor::vela;

void CheckRuleText(const FwRule& rule) {
    static const RuleGenerator generator;
    std::string text;
    if (generator.CreateRule(ReadRuleFields(rule), text) == 0 &&
        qvfuzz::FirstShellActiveChar(text) != std::string::npos) {
        qvfuzz::Fail("stored rule gives rule text the shell acts on", text);
    }
}

// Message -> dictionary -> message must give the message back.
template <typename T>
void CheckRoundTrip(const T& message) {
    CFMutableDictionaryRef dict = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    if (!convert(message, dict)) {
        CFRelease(dict);
        qvfuzz::Fail("a message read from a dictionary cannot be written", message.GetTypeName());
    }
    T again;
    const bool read = convert(static_cast<CFDictionaryRef>(dict), again);
    CFRelease(dict);
    if (!read || again.SerializePartialAsString() != message.SerializePartialAsString()) {
        qvfuzz::Fail("a message changed on its way through a dictionary", message.GetTypeName());
    }
}

void ConvertEntry(CFDictionaryRef dict) {
    FwRule rule;
    if (convert(dict, rule)) {
        CheckRoundTrip(rule);
        CheckRuleText(rule);
    }
    FwRuleList list;
    if (convert(dict, list)) {
        CheckRoundTrip(list);
        for (const FwRule& stored : list.rules()) {
            CheckRuleText(stored);
        }
    }
    FwOptions options;
    if (convert(dict, options)) {
        CheckRoundTrip(options);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CFPropertyListRef plist = qvfuzz::ReadPlist(data, size);
    if (plist == nullptr) {
        return 0;
    }
    if (CFGetTypeID(plist) == CFDictionaryGetTypeID()) {
        CFDictionaryRef root = static_cast<CFDictionaryRef>(plist);
        ConvertEntry(root);
        for (const char* key : {"FwOptions", "FwRuleCfg", "FwExceptionRuleCfg"}) {
            CFStringRef name =
                CFStringCreateWithCString(kCFAllocatorDefault, key, kCFStringEncodingUTF8);
            CFTypeRef value = CFDictionaryGetValue(root, name);
            CFRelease(name);
            if (value != nullptr && CFGetTypeID(value) == CFDictionaryGetTypeID()) {
                ConvertEntry(static_cast<CFDictionaryRef>(value));
            }
        }
    }
    CFRelease(plist);
    return 0;
}
