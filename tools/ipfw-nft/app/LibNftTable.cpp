#include "LibNftTable.h"

#include <nftables/libnftables.h>

#include "ipfwnft/EnforcerProtocol.h"
#include "ipfwnft/TableLayout.h"

#include <string>

namespace ipfwnft {
namespace {

// nft's message without the echo of the script lines it points into.
std::string firstLine(const char* text) {
    const std::string message = text != nullptr ? text : "";
    return message.substr(0, message.find('\n'));
}

}  // namespace

void LibNftTable::ContextDeleter::operator()(nft_ctx* context) const {
    nft_ctx_free(context);
}

LibNftTable::LibNftTable() : context_(nft_ctx_new(NFT_CTX_DEFAULT)) {
    if (context_) {
        nft_ctx_buffer_error(context_.get());
        nft_ctx_buffer_output(context_.get());
    }
}

LibNftTable::~LibNftTable() = default;

ipfwsim::Status LibNftTable::run(const std::string& script, unsigned int outputFlags,
                                 std::string& output) {
    std::lock_guard<std::mutex> lock(mutex_);
    return runHeld(script, outputFlags, output);
}

ipfwsim::Status LibNftTable::runHeld(const std::string& script, unsigned int outputFlags,
                                     std::string& output) {
    if (!context_) {
        return ipfwsim::Status::failure(ipfwsim::kExitSoftware, "nftables: no context");
    }
    nft_ctx_output_set_flags(context_.get(), outputFlags);
    const bool failed = nft_run_cmd_from_buffer(context_.get(), script.c_str()) != 0;
    // Reading a buffer empties it for the next command.
    const char* text = nft_ctx_get_output_buffer(context_.get());
    output = text != nullptr ? text : "";
    const std::string error = firstLine(nft_ctx_get_error_buffer(context_.get()));
    if (failed) {
        return ipfwsim::Status::failure(ipfwsim::kExitUnavailable, "nftables: " + error);
    }
    return ipfwsim::Status::success();
}

// Listing one chain reads that chain's rules only.
ipfwsim::Status LibNftTable::listChain(const std::string& table, const std::string& chain,
                                       std::vector<KernelRule>& rules) {
    std::string listing;
    const ipfwsim::Status status =
        run("list chain " + table + " " + chain + "\n", NFT_CTX_OUTPUT_HANDLE, listing);
    rules = status.ok() ? parseChainListing(listing) : std::vector<KernelRule>();
    return status;
}

ipfwsim::Status LibNftTable::apply(const std::string& script) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::string ignored;
    const ipfwsim::Status status = runHeld(script, 0, ignored);
    // Only until the next change does the count this one left stand in the head table.
    readAhead_ = status.ok() ? readAheadScript(script) : std::string();
    return status;
}

void LibNftTable::readAhead() {
    std::lock_guard<std::mutex> lock(mutex_);
    const std::string script = std::move(readAhead_);
    readAhead_.clear();
    std::string ignored;
    if (!script.empty()) {
        (void)runHeld(script, 0, ignored);
    }
}

}  // namespace ipfwnft
