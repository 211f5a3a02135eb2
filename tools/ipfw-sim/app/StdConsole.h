#pragma once

#include <string>

#include "ipfwsim/Console.h"

namespace ipfwsim {

// The process's standard streams.
class StdConsole : public Console {
public:
    ~StdConsole() override { flushOut(); }
    void out(std::string_view text) override { pending_ += text; }
    void err(std::string_view text) override;
    void flushOut() override;
    bool readLine(std::string& line) override;

private:
    std::string pending_;
};

}  // namespace ipfwsim
