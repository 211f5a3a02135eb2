#pragma once

#include <string>
#include <string_view>

namespace ipfwsim {

// Standard streams as the command uses them: output is held back until flushed (the
// real command's stdout is fully buffered into a pipe), errors go out at once.
class Console {
public:
    virtual ~Console() = default;
    virtual void out(std::string_view text) = 0;
    virtual void err(std::string_view text) = 0;
    virtual void flushOut() = 0;
    // One line from standard input without its newline; false at end of input.
    virtual bool readLine(std::string& line) = 0;
};

}  // namespace ipfwsim
