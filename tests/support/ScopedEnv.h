// An environment variable set (or unset) for a scope, restored at its end.
#pragma once

#include <stdlib.h>

#include <string>

namespace qvtest {

// Sets (or, with null, unsets) an environment variable and restores it at scope end.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : m_name(name) {
        const char* old = getenv(name);
        m_hadOld = old != nullptr;
        if (m_hadOld) {
            m_old = old;
        }
        if (value) {
            setenv(name, value, 1);
        } else {
            unsetenv(name);
        }
    }
    ScopedEnv(const char* name, const std::string& value) : ScopedEnv(name, value.c_str()) {}
    ~ScopedEnv() {
        if (m_hadOld) {
            setenv(m_name.c_str(), m_old.c_str(), 1);
        } else {
            unsetenv(m_name.c_str());
        }
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string m_name;
    std::string m_old;
    bool m_hadOld = false;
};

}  // namespace qvtest
