#pragma once

#include <memory>
#include <mutex>

#include "ipfwnft/KernelTable.h"

struct nft_ctx;

namespace ipfwnft {

// The tables through libnftables, the library behind nft(8): one buffer, one
// transaction. ipfw-enforcer keeps one context for all the commands it serves; nft
// rereads the tables only after somebody changed them. Safe to share between threads: one
// command at a time runs.
class LibNftTable : public KernelTable {
public:
    LibNftTable();
    ~LibNftTable() override;
    LibNftTable(const LibNftTable&) = delete;
    LibNftTable& operator=(const LibNftTable&) = delete;

    ipfwsim::Status apply(const std::string& script) override;
    ipfwsim::Status listChain(const std::string& table, const std::string& chain,
                              std::vector<KernelRule>& rules) override;

private:
    ipfwsim::Status run(const std::string& script, unsigned int outputFlags, std::string& output);

    struct ContextDeleter {
        void operator()(nft_ctx* context) const;
    };
    std::mutex mutex_;
    std::unique_ptr<nft_ctx, ContextDeleter> context_;  // guarded by mutex_
};

}  // namespace ipfwnft
