// An environment variable set (or unset) for a scope, restored at its end.
#pragma once

#include <stdlib.h>

#include <optional>
#include <string>

namespace qvtest {

// Sets (or, with null, unsets) an environment variable and restores it at scope end.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : m_name(name) {
        if (const char* old = getenv(name)) {
            m_old = old;
        }
        value != nullptr ? setenv(name, value, 1) : unsetenv(name);
    }
    ScopedEnv(const char* name, const std::string& value) : ScopedEnv(name, value.c_str()) {}
    ~ScopedEnv() { m_old ? setenv(m_name.c_str(), m_old->c_str(), 1) : unsetenv(m_name.c_str()); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string m_name;
    std::optional<std::string> m_old;
};

}  // namespace qvtest
