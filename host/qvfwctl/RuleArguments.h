// Where a sub-command's rule comes from. The rule is words (the arguments from `index`
// on, or one quoted argument) unless its one argument is JSON, "-" for standard input or
// the name of a file; what is read from those is JSON when it starts like JSON and words
// otherwise. A rule list in words is one rule per argument, or per line of the input.
// Each reader prints what it could not read and leaves the exit status in `*status`.
#pragma once

#include <stddef.h>

#include "SubCommand.h"
#include "VelaFwMsg.pb.h"

namespace qvctl {

bool ReadRuleArguments(CtlContext& context, size_t index, qor::vela::FwRule* rule, int* status);
bool ReadRuleListArguments(CtlContext& context, qor::vela::FwRuleInfoList* list, int* status);

}  // namespace qvctl
