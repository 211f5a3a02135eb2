#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "ipfwnft/KernelTable.h"

struct nft_ctx;

namespace ipfwnft {

// The tables through libnftables, the library behind nft(8): one buffer, one
// transaction. ipfw-enforcer keeps one context for all the commands it serves; nft
// rereads the tables whenever the ruleset changed since its last reading, its own
// transactions included, unless a read-ahead came between. Safe to share between threads:
// one command at a time runs.
class LibNftTable : public KernelTable {
public:
    LibNftTable();
    ~LibNftTable() override;
    LibNftTable(const LibNftTable&) = delete;
    LibNftTable& operator=(const LibNftTable&) = delete;

    ipfwsim::Status apply(const std::string& script) override;
    ipfwsim::Status listChain(const std::string& table, const std::string& chain,
                              std::vector<KernelRule>& rules) override;
    // Has nft read the tables for the next change (readAheadScript), if no change came after
    // the last one applied. Whether it could costs nothing but the reading: the next change
    // reads them itself.
    void readAhead();

private:
    ipfwsim::Status run(const std::string& script, unsigned int outputFlags, std::string& output);
    ipfwsim::Status runHeld(const std::string& script, unsigned int outputFlags,
                            std::string& output);  // mutex_ held

    struct ContextDeleter {
        void operator()(nft_ctx* context) const;
    };
    std::mutex mutex_;
    std::unique_ptr<nft_ctx, ContextDeleter> context_;  // guarded by mutex_
    std::string readAhead_;                             // guarded by mutex_
};

}  // namespace ipfwnft
