#include "LibNftApplier.h"

#include <nftables/libnftables.h>

#include <memory>

namespace ipfwnft {
namespace {

struct ContextDeleter {
    void operator()(nft_ctx* context) const { nft_ctx_free(context); }
};

// nft's message without the echo of the script lines it points into.
std::string firstLine(const char* text) {
    const std::string message = text != nullptr ? text : "";
    return message.substr(0, message.find('\n'));
}

}  // namespace

ipfwsim::Status LibNftApplier::apply(const std::string& script) {
    std::unique_ptr<nft_ctx, ContextDeleter> context(nft_ctx_new(NFT_CTX_DEFAULT));
    if (!context) {
        return ipfwsim::Status::failure(ipfwsim::kExitSoftware, "nftables: no context");
    }
    nft_ctx_buffer_error(context.get());
    nft_ctx_buffer_output(context.get());
    if (nft_run_cmd_from_buffer(context.get(), script.c_str()) != 0) {
        return ipfwsim::Status::failure(
            ipfwsim::kExitUnavailable,
            "nftables: " + firstLine(nft_ctx_get_error_buffer(context.get())));
    }
    return ipfwsim::Status::success();
}

}  // namespace ipfwnft
