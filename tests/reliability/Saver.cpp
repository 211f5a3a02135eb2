// The process the crash-safety test kills: it saves the configuration in a loop through
// the store, generation after generation, and writes each generation's number (4 bytes)
// to standard output once its save has returned. Generation g stores g % 5 + 1 rules with
// long descriptions, so documents grow and shrink by tens of kilobytes and a kill often
// lands inside a copy or a write.
#include <unistd.h>

#include <cstdint>
#include <string>

#include "QvConfig.h"
#include "VelaFwMsgConvert.h"

using namespace qor::vela;

FwRuleList Generation(uint32_t generation) {
    FwRuleList list;
    for (uint32_t i = 0; i <= generation % 5; ++i) {
        FwRule* rule = list.add_rules();
        rule->set_rule_index(3100 + 10 * i);
        rule->set_description("generation " + std::to_string(generation) + " " +
                              std::string(16384, 'x'));
        rule->mutable_protocol()->set_type(PROTO_ALL);
    }
    return list;
}

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    QvConfig<Mutex> store(argv[1]);
    if (!store.isLoaded()) {
        return 3;
    }
    for (uint32_t generation = static_cast<uint32_t>(std::stoul(argv[2]));; ++generation) {
        if (!store.set(Generation(generation), "FwRuleCfg").ok() || !store.save().ok()) {
            return 4;
        }
        if (write(STDOUT_FILENO, &generation, sizeof generation) != sizeof generation) {
            return 5;
        }
    }
}
