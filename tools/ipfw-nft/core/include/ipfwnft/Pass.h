#pragma once

namespace ipfwnft {

// One walk of a packet through the ipfw rules. FreeBSD runs the rules once when a packet
// comes in and once when it goes out, so a forwarded packet takes both passes: in on its
// receiving interface, then out on its sending one. A packet made on this machine has no
// receiving interface in its out pass, which the interface tests see as an empty name.
enum class Pass { In, Out };

inline bool isInbound(Pass pass) {
    return pass == Pass::In;
}

// The chain that holds the rules of one pass.
inline const char* passChain(Pass pass) {
    return pass == Pass::In ? "rules_in" : "rules_out";
}

}  // namespace ipfwnft
