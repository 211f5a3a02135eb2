#pragma once

namespace ipfwnft {

// One walk of a packet through the ipfw rules. FreeBSD runs the rules once when a packet
// comes in and once when it goes out, so a forwarded packet takes two passes: in on its
// receiving interface, then out on its sending one.
enum class Pass { In, Out, ForwardIn, ForwardOut };

inline bool isInbound(Pass pass) {
    return pass == Pass::In || pass == Pass::ForwardIn;
}

inline bool isForwarded(Pass pass) {
    return pass == Pass::ForwardIn || pass == Pass::ForwardOut;
}

// The chain that holds the rules of one pass.
inline const char* passChain(Pass pass) {
    switch (pass) {
        case Pass::In:
            return "rules_in";
        case Pass::Out:
            return "rules_out";
        case Pass::ForwardIn:
            return "rules_forward_in";
        case Pass::ForwardOut:
            break;
    }
    return "rules_forward_out";
}

// What "allow" means in a pass: the first pass of a forwarded packet must hand it on to
// the second rather than let it through.
inline const char* allowVerdict(Pass pass) {
    return pass == Pass::ForwardIn ? "return" : "accept";
}

}  // namespace ipfwnft
