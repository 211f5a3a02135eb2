#include "EventLine.h"

#include <time.h>

#include "QvControl.h"

namespace qvctl {

namespace {

std::string LocalTime(int32_t seconds) {
    time_t when = seconds;
    struct tm local {};
    char text[32] = "";
    if (localtime_r(&when, &local) != nullptr) {
        strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    }
    return text;
}

const char* OriginName(int32_t origin) {
    return origin == kFromCallback ? "callback" : "service";
}

}  // namespace

std::string PacketText(const std::string& detail) {
    std::string text = detail;
    text.erase(text.find_last_not_of(std::string("\n\r\0", 3)) + 1);
    size_t number = text.find_first_not_of("0123456789");
    if (number != std::string::npos && number > 0) {
        text = text.substr(text.find_first_not_of(' ', number) == std::string::npos
                               ? text.size()
                               : text.find_first_not_of(' ', number));
    }
    return text;
}

std::string FormatEventLine(const qor::vela::EventLogItemFw& event, int32_t origin,
                            bool showOrigin) {
    std::string line = LocalTime(event.time());
    if (showOrigin) {
        line += std::string(" (") + OriginName(origin) + ")";
    }
    return line + "  " + std::to_string(event.rule_index()) + "  " + PacketText(event.detail());
}

}  // namespace qvctl
