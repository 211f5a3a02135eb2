#include "BinaryPlistGuard.h"

#include "PlistLimits.h"

#include <cstring>
#include <vector>

namespace qvcf {
namespace {

constexpr size_t kHeaderSize = 8;
constexpr size_t kTrailerSize = 32;

enum Marker : uint8_t {
    kMarkerSimple = 0x0,  // false 0x08, true 0x09; null and fill are refused
    kMarkerInteger = 0x1,
    kMarkerReal = 0x2,
    kMarkerDate = 0x3,
    kMarkerData = 0x4,
    kMarkerAsciiString = 0x5,
    kMarkerUtf16String = 0x6,
    kMarkerArray = 0xA,
    kMarkerDictionary = 0xD,
};

uint64_t readBigEndian(const uint8_t* bytes, size_t width) {
    uint64_t value = 0;
    for (size_t i = 0; i < width; ++i) {
        value = (value << 8) | bytes[i];
    }
    return value;
}

bool isValidWidth(uint64_t width) {
    return width == 1 || width == 2 || width == 4 || width == 8;
}

// One object's place and, for containers, its references.
struct ObjectInfo {
    bool isString = false;
    bool isContainer = false;
    bool isDictionary = false;
    uint64_t referenceStart = 0;  // byte offset of the reference list
    uint64_t referenceCount = 0;  // 2 * entries for dictionaries
};

// Memoised depth-first walk state of one object.
enum class Visit : uint8_t { kNew, kOpen, kDone };

class Guard {
public:
    Guard(const uint8_t* bytes, size_t size) : bytes_(bytes), size_(size) {}

    bool run() {
        if (!readTrailer()) {
            return false;
        }
        visits_.assign(objectCount_, Visit::kNew);
        strings_.assign(objectCount_, false);
        expanded_.assign(objectCount_, 0);
        depth_.assign(objectCount_, 0);
        return walk(rootObject_);
    }

private:
    bool readTrailer() {
        if (size_ < kHeaderSize + kTrailerSize) {
            return false;
        }
        const uint8_t* trailer = bytes_ + size_ - kTrailerSize;
        offsetWidth_ = trailer[6];
        referenceWidth_ = trailer[7];
        objectCount_ = readBigEndian(trailer + 8, 8);
        rootObject_ = readBigEndian(trailer + 16, 8);
        offsetTable_ = readBigEndian(trailer + 24, 8);
        objectsEnd_ = size_ - kTrailerSize;
        if (!isValidWidth(offsetWidth_) || !isValidWidth(referenceWidth_) || objectCount_ == 0 ||
            rootObject_ >= objectCount_ || offsetTable_ < kHeaderSize ||
            offsetTable_ > objectsEnd_) {
            return false;
        }
        // The offset table must fit between its start and the trailer.
        return objectCount_ <= (objectsEnd_ - offsetTable_) / offsetWidth_;
    }

    // Start of object `index`, within the object area.
    bool objectOffset(uint64_t index, uint64_t& offset) const {
        offset = readBigEndian(bytes_ + offsetTable_ + index * offsetWidth_, offsetWidth_);
        return offset >= kHeaderSize && offset < offsetTable_;
    }

    // Whether `length` bytes starting at `offset` lie before the offset table.
    bool fits(uint64_t offset, uint64_t length) const {
        return offset <= offsetTable_ && length <= offsetTable_ - offset;
    }

    // A date is a big-endian double of seconds since 2001, which libplist narrows to
    // 32 bits; anything outside that range would be read as another date.
    bool isRepresentableDate(uint64_t offset) const {
        const uint64_t bits = readBigEndian(bytes_ + offset, 8);
        double seconds = 0;
        std::memcpy(&seconds, &bits, sizeof seconds);
        return seconds >= kMinPlistDate && seconds <= kMaxPlistDate;
    }

    // Whether a string holds U+0000, on which libplist 2.2.0 asserts when the string is
    // a key, and which no CoreFoundation string of ours can carry.
    bool holdsZeroUnit(uint64_t offset, uint64_t count, size_t width) const {
        for (uint64_t i = 0; i < count; ++i) {
            if (readBigEndian(bytes_ + offset + i * width, width) == 0) {
                return true;
            }
        }
        return false;
    }

    // The element count of a data, string or container object, which follows the
    // marker as an integer object when the marker's low nibble is 0xF.
    bool readCount(uint64_t& offset, uint8_t low, uint64_t& count) const {
        if (low != 0xF) {
            count = low;
            return true;
        }
        if (!fits(offset, 1) || (bytes_[offset] >> 4) != kMarkerInteger) {
            return false;
        }
        const uint64_t width = uint64_t{1} << (bytes_[offset] & 0xF);
        if (width > 8 || !fits(offset + 1, width)) {
            return false;
        }
        count = readBigEndian(bytes_ + offset + 1, static_cast<size_t>(width));
        offset += 1 + width;
        return true;
    }

    bool inspect(uint64_t index, ObjectInfo& info) const {
        uint64_t offset = 0;
        if (!objectOffset(index, offset)) {
            return false;
        }
        const uint8_t marker = bytes_[offset];
        const uint8_t high = marker >> 4;
        const uint8_t low = marker & 0xF;
        ++offset;
        switch (high) {
            case kMarkerSimple:
                return low == 0x8 || low == 0x9;
            case kMarkerInteger:
                return low <= 4 && fits(offset, uint64_t{1} << low);
            case kMarkerReal:
                return (low == 2 || low == 3) && fits(offset, uint64_t{1} << low);
            case kMarkerDate:
                return low == 3 && fits(offset, 8) && isRepresentableDate(offset);
            default:
                break;
        }
        uint64_t count = 0;
        if (!readCount(offset, low, count)) {
            return false;
        }
        const uint64_t available = offsetTable_ - offset;
        switch (high) {
            case kMarkerData:
                return count <= available;
            case kMarkerAsciiString:
                info.isString = true;
                return count <= available && !holdsZeroUnit(offset, count, 1);
            case kMarkerUtf16String:
                info.isString = true;
                return count <= available / 2 && !holdsZeroUnit(offset, count, 2);
            case kMarkerArray:
            case kMarkerDictionary: {
                const uint64_t perEntry = high == kMarkerDictionary ? 2 : 1;
                if (count > available / referenceWidth_ / perEntry) {
                    return false;
                }
                info.isContainer = true;
                info.isDictionary = high == kMarkerDictionary;
                info.referenceStart = offset;
                info.referenceCount = count * perEntry;
                return true;
            }
            default:
                return false;
        }
    }

    uint64_t reference(const ObjectInfo& info, uint64_t i) const {
        return readBigEndian(bytes_ + info.referenceStart + i * referenceWidth_, referenceWidth_);
    }

    // Iterative post-order walk: every object is inspected once, its expanded size
    // and depth computed from its children's; an object met again while still open
    // is a cycle.
    bool walk(uint64_t root) {
        struct Frame {
            uint64_t index;
            ObjectInfo info;
            uint64_t next;
        };
        std::vector<Frame> stack;
        if (!open(root, stack)) {
            return false;
        }
        while (!stack.empty()) {
            Frame& frame = stack.back();
            if (frame.next == frame.info.referenceCount) {
                if (!close(frame.index, frame.info)) {
                    return false;
                }
                stack.pop_back();
                continue;
            }
            const uint64_t child = reference(frame.info, frame.next);
            // A dictionary lists all its keys first, then all its values.
            const bool isKey =
                frame.info.isDictionary && frame.next < frame.info.referenceCount / 2;
            ++frame.next;
            if (child >= objectCount_ || visits_[child] == Visit::kOpen) {
                return false;
            }
            if (visits_[child] == Visit::kNew && !open(child, stack)) {
                return false;
            }
            if (isKey && !strings_[child]) {
                return false;
            }
        }
        return expanded_[root] <= kMaxPlistNodes;
    }

    template <typename Stack>
    bool open(uint64_t index, Stack& stack) {
        ObjectInfo info;
        if (!inspect(index, info)) {
            return false;
        }
        // Containers deeper than the limit are refused before they are walked.
        if (info.isContainer && stack.size() >= kMaxPlistDepth) {
            return false;
        }
        visits_[index] = Visit::kOpen;
        strings_[index] = info.isString;
        stack.push_back({index, info, 0});
        return true;
    }

    bool close(uint64_t index, const ObjectInfo& info) {
        uint64_t expanded = 1;
        uint64_t depth = 0;
        for (uint64_t i = 0; i < info.referenceCount; ++i) {
            const uint64_t child = reference(info, i);
            expanded += expanded_[child];
            depth = depth_[child] > depth ? depth_[child] : depth;
            if (expanded > kMaxPlistNodes) {
                return false;
            }
        }
        depth_[index] = depth + (info.isContainer ? 1 : 0);
        expanded_[index] = expanded;
        visits_[index] = Visit::kDone;
        return depth_[index] <= kMaxPlistDepth;
    }

    const uint8_t* bytes_;
    size_t size_;
    uint64_t offsetWidth_ = 0;
    uint64_t referenceWidth_ = 0;
    uint64_t objectCount_ = 0;
    uint64_t rootObject_ = 0;
    uint64_t offsetTable_ = 0;
    uint64_t objectsEnd_ = 0;
    std::vector<Visit> visits_;
    std::vector<uint64_t> expanded_;
    std::vector<uint64_t> depth_;
    std::vector<bool> strings_;
};

}  // namespace

bool BinaryPlistGuard::check(const uint8_t* bytes, size_t size) {
    return Guard(bytes, size).run();
}

}  // namespace qvcf
