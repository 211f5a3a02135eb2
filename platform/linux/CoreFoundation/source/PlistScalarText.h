// The text of the property-list scalars other than strings: <integer>, <real>, <date>
// and <data>. CoreFoundation's readings, narrowed where this reader has always been
// narrower (dates) and widened where it has always been wider (blanks after an integer).
#pragma once

#include <CoreFoundation/CFBase.h>

#include <cstdint>
#include <string_view>
#include <vector>

namespace qvcf {

class PlistScalarText {
public:
    // An optional sign, then decimal digits (leading zeros do not make it octal) or hex
    // digits after "0x"; blanks are allowed around the sign and the number. Values
    // beyond int64_t are refused: libplist wrapped them into other values.
    static bool integer(std::string_view text, int64_t& value);

    // A decimal number in the C locale whatever the thread's locale, blanks allowed
    // before it, or one of the words nan, inf, +inf, -inf, infinity, +infinity,
    // -infinity in any case.
    static bool real(std::string_view text, double& value);

    // "2020-01-02T03:04:05Z", as seconds from 2001-01-01, within the dates this reader
    // keeps (see PlistLimits.h).
    static bool date(std::string_view text, double& seconds);

    // Base64 decoded as CoreFoundation decodes it: characters outside the alphabet are
    // skipped, a last group of fewer than four is dropped, non-ASCII bytes are refused.
    static bool data(std::string_view text, std::vector<UInt8>& bytes);
};

}  // namespace qvcf
