// The firewall's command table: 21 rows, handed to the host by QvPluginGetHandlers.
#pragma once

#include "QvPlugin.h"

constexpr int kHandlerCount = 21;

extern "C" const QvHandlerEntry handlerArr[kHandlerCount];
