#include "QvDebugLog.h"

void* g_debugLogContext = nullptr;
