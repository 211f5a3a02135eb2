// Reading and writing a configuration-sized property list, against libplist's own
// parser and writer as the baseline; and the dictionary lookups the conversions make.
#include <CoreFoundation/CoreFoundation.h>
#include <benchmark/benchmark.h>
#include <plist/plist.h>

#include <cstdlib>
#include <string>

namespace {

CFStringRef text(const std::string& value) {
    return CFStringCreateWithCString(kCFAllocatorDefault, value.c_str(), kCFStringEncodingUTF8);
}

void put(CFMutableDictionaryRef dictionary, const char* key, CFTypeRef value) {
    CFStringRef name = text(key);
    CFDictionaryAddValue(dictionary, name, value);
    CFRelease(name);
    CFRelease(value);
}

CFMutableDictionaryRef newDictionary() {
    return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks);
}

CFNumberRef number(int value) {
    return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value);
}

// A configuration document with `count` rules shaped like the firewall's.
CFMutableDictionaryRef configuration(int count) {
    CFMutableDictionaryRef root = newDictionary();
    CFMutableDictionaryRef options = newDictionary();
    put(options, "enable_fw", CFRetain(kCFBooleanTrue));
    put(options, "fw_log_path", text("/var/log/Quorvane/QvrnCore/ipfw.log"));
    put(root, "FwOptions", options);
    CFMutableDictionaryRef list = newDictionary();
    const void** rules = new const void*[static_cast<size_t>(count)];
    for (int i = 0; i < count; ++i) {
        CFMutableDictionaryRef rule = newDictionary();
        put(rule, "rule_index", number(3100 + i));
        put(rule, "action", number(i % 4));
        put(rule, "description", text("rule number " + std::to_string(i) + " & more"));
        CFMutableDictionaryRef protocol = newDictionary();
        put(protocol, "type", number(1));
        put(protocol, "protocol", number(6));
        put(rule, "protocol", protocol);
        CFMutableDictionaryRef port = newDictionary();
        put(port, "port", number(1024 + i));
        put(port, "use_range", CFRetain(kCFBooleanFalse));
        const void* ports[] = {port};
        CFMutableDictionaryRef dstPort = newDictionary();
        put(dstPort, "port_type", number(1));
        put(dstPort, "ports", CFArrayCreate(kCFAllocatorDefault, ports, 1, &kCFTypeArrayCallBacks));
        CFRelease(port);
        put(rule, "dst_port", dstPort);
        rules[i] = rule;
    }
    put(list, "rules", CFArrayCreate(kCFAllocatorDefault, rules, count, &kCFTypeArrayCallBacks));
    for (int i = 0; i < count; ++i) {
        CFRelease(rules[i]);
    }
    delete[] rules;
    put(root, "FwRuleCfg", list);
    return root;
}

std::string xmlOf(CFTypeRef plist) {
    CFDataRef data = CFPropertyListCreateData(kCFAllocatorDefault, plist,
                                              kCFPropertyListXMLFormat_v1_0, 0, nullptr);
    std::string bytes(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                      static_cast<size_t>(CFDataGetLength(data)));
    CFRelease(data);
    return bytes;
}

void BM_ReadConfiguration(benchmark::State& state) {
    CFMutableDictionaryRef document = configuration(static_cast<int>(state.range(0)));
    const std::string bytes = xmlOf(document);
    CFRelease(document);
    for (auto _ : state) {
        CFDataRef data = CFDataCreateWithBytesNoCopy(
            kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()),
            static_cast<CFIndex>(bytes.size()), kCFAllocatorNull);
        CFPropertyListRef plist = CFPropertyListCreateWithData(
            kCFAllocatorDefault, data, kCFPropertyListMutableContainers, nullptr, nullptr);
        benchmark::DoNotOptimize(plist);
        CFRelease(plist);
        CFRelease(data);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_ReadConfiguration)->Arg(10)->Arg(200);

void BM_LibplistParseBaseline(benchmark::State& state) {
    CFMutableDictionaryRef document = configuration(static_cast<int>(state.range(0)));
    const std::string bytes = xmlOf(document);
    CFRelease(document);
    for (auto _ : state) {
        plist_t root = nullptr;
        plist_from_xml(bytes.data(), static_cast<uint32_t>(bytes.size()), &root);
        benchmark::DoNotOptimize(root);
        plist_free(root);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_LibplistParseBaseline)->Arg(10)->Arg(200);

void BM_WriteConfiguration(benchmark::State& state) {
    CFMutableDictionaryRef document = configuration(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        CFDataRef data = CFPropertyListCreateData(kCFAllocatorDefault, document,
                                                  kCFPropertyListXMLFormat_v1_0, 0, nullptr);
        benchmark::DoNotOptimize(data);
        CFRelease(data);
    }
    CFRelease(document);
}
BENCHMARK(BM_WriteConfiguration)->Arg(10)->Arg(200);

void BM_LibplistWriteBaseline(benchmark::State& state) {
    CFMutableDictionaryRef document = configuration(static_cast<int>(state.range(0)));
    const std::string bytes = xmlOf(document);
    CFRelease(document);
    plist_t root = nullptr;
    plist_from_xml(bytes.data(), static_cast<uint32_t>(bytes.size()), &root);
    for (auto _ : state) {
        char* xml = nullptr;
        uint32_t length = 0;
        plist_to_xml(root, &xml, &length);
        benchmark::DoNotOptimize(xml);
        plist_to_xml_free(xml);
    }
    plist_free(root);
}
BENCHMARK(BM_LibplistWriteBaseline)->Arg(10)->Arg(200);

// A lookup as the conversions make it: a key string made, looked up, released.
void BM_DictionaryLookupWithFreshKey(benchmark::State& state) {
    CFMutableDictionaryRef rule = newDictionary();
    for (const char* key : {"rule_index", "description", "probability", "action", "protocol",
                            "src_ip", "dst_ip", "src_port", "dst_port", "direction"}) {
        put(rule, key, number(1));
    }
    for (auto _ : state) {
        CFStringRef key = text("direction");
        benchmark::DoNotOptimize(CFDictionaryGetValue(rule, key));
        CFRelease(key);
    }
    CFRelease(rule);
}
BENCHMARK(BM_DictionaryLookupWithFreshKey);

}  // namespace
