// Result codes of the plug-in. 0 is success; lower layers' codes pass upward unchanged.
#pragma once

#include <cstdint>

namespace qor {
namespace vela {

enum QvError : int32_t {
    QV_OK = 0,
    QV_ERR_SERIALIZE = 20001,       // a response could not be serialized
    QV_ERR_INVALID_ARG = 20002,     // null pointer, zero length, value out of range
    QV_ERR_NO_MEMORY = 20006,       // no memory for a response buffer
    QV_ERR_INCOMPLETE = 20010,      // a request or reply message is incomplete
    QV_ERR_INIT = 20013,            // the firewall manager failed to initialise
    QV_ERR_CMD = 20016,             // a command line could not be run, or failed
    FW_ERR_RULE_NOT_FOUND = 20701,  // no rule with that index in the stored list
    FW_ERR_MAC = 20702,             // MAC address missing or invalid
    FW_ERR_NO_RULE_NUM = 20703,     // no rule number could be allocated
    FW_ERR_RULE_REFUSED = 20704,    // ipfw refused a rule
    FW_ERR_ACTION = 20705,          // action without a keyword
    FW_ERR_UNSAFE_TEXT = 20706,     // host or interface text that must not reach the shell
    FW_ERR_DUP_ORDER = 20707,       // two entries of a rule list share one order
};

}  // namespace vela
}  // namespace qor
