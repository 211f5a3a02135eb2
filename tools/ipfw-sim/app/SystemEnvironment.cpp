#include "SystemEnvironment.h"

#include <fcntl.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <random>
#include <sstream>

#include "ipfwsim/Inet.h"

namespace ipfwsim {
namespace {

const char* variable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : nullptr;
}

Status badVariable(const char* name, const char* value) {
    return Status::failure(kExitUsage, std::string(name) + ": malformed value ``" + value + "''");
}

bool parseInteger(const char* text, long long& value) {
    char* end = nullptr;
    errno = 0;
    value = std::strtoll(text, &end, 10);
    return errno == 0 && end != text && *end == '\0';
}

bool parseAddressList(const std::string& text, std::vector<uint32_t>& addresses) {
    std::istringstream items(text);
    std::string item;
    while (std::getline(items, item, ',')) {
        uint32_t address = 0;
        if (!parseInetAton(item, address)) {
            return false;
        }
        addresses.push_back(address);
    }
    return true;
}

bool readWholeFile(const std::string& path, std::string& text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return false;
    }
    std::ostringstream content;
    content << in.rdbuf();
    text = content.str();
    return true;
}

std::string shortHostName() {
    char name[256] = {};
    if (gethostname(name, sizeof(name) - 1) != 0) {
        return "localhost";
    }
    std::string host = name;
    return host.substr(0, host.find('.'));
}

}  // namespace

Status SystemEnvironment::create(std::unique_ptr<SystemEnvironment>& environment) {
    std::unique_ptr<SystemEnvironment> env(new SystemEnvironment());
    long long number = 0;
    if (const char* now = variable("IPFW_SIM_NOW")) {
        if (!parseInteger(now, number)) {
            return badVariable("IPFW_SIM_NOW", now);
        }
        env->fixedNow_ = true;
        env->now_ = number;
    }
    if (const char* seed = variable("IPFW_SIM_SEED")) {
        if (!parseInteger(seed, number)) {
            return badVariable("IPFW_SIM_SEED", seed);
        }
        env->seed_ = static_cast<uint64_t>(number);
    } else {
        std::random_device device;
        env->seed_ = (static_cast<uint64_t>(device()) << 32) | device();
    }
    if (const char* me = variable("IPFW_SIM_ME")) {
        if (!parseAddressList(me, env->me_)) {
            return badVariable("IPFW_SIM_ME", me);
        }
        env->fixedMe_ = true;
    }
    std::string hosts;
    const char* hostsPath = variable("IPFW_SIM_HOSTS");
    if (hostsPath != nullptr && !readWholeFile(hostsPath, hosts)) {
        return Status::failure(kExitIoErr, std::string("cannot read ") + hostsPath);
    }
    env->names_ = std::make_unique<SystemNameService>(hostsPath != nullptr, hosts);
    const char* conf = variable("IPFW_SIM_SYSLOG_CONF");
    env->syslogPath_ = conf != nullptr ? conf : QV_IPFW_SYSLOG_CONF_DEFAULT;
    const char* host = variable("IPFW_SIM_HOSTNAME");
    env->hostName_ = host != nullptr ? host : shortHostName();
    environment = std::move(env);
    return Status::success();
}

int64_t SystemEnvironment::now() const {
    return fixedNow_ ? now_ : static_cast<int64_t>(std::time(nullptr));
}

std::vector<uint32_t> SystemEnvironment::localAddresses() const {
    if (fixedMe_) {
        return me_;
    }
    std::vector<uint32_t> addresses;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return addresses;
    }
    for (ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET) {
            addresses.push_back(
                ntohl(reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr.s_addr));
        }
    }
    freeifaddrs(list);
    return addresses;
}

std::string SystemEnvironment::hostName() const {
    return hostName_;
}

bool SystemEnvironment::stdinIsTerminal() const {
    return isatty(STDIN_FILENO) != 0;
}

std::string SystemEnvironment::syslogConfiguration() const {
    std::string text;
    return readWholeFile(syslogPath_, text) ? text : std::string();
}

// A log file may sit in a directory that other users can write: a link planted in place
// of the file must not send the lines (as root) into a file of the planter's choosing.
Status SystemEnvironment::appendToFile(const std::string& path, std::string_view text) {
    int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0) {
        return Status::failure(kExitIoErr,
                               "cannot append to " + path + ": " +
                                   (errno == ELOOP ? "it is a symbolic link; refusing to follow it"
                                                   : std::strerror(errno)));
    }
    // One write per line, so that concurrent writers never interleave inside a line.
    ssize_t written = write(fd, text.data(), text.size());
    int error = errno;
    close(fd);
    if (written != static_cast<ssize_t>(text.size())) {
        return Status::failure(kExitIoErr,
                               "cannot append to " + path + ": " + std::strerror(error));
    }
    return Status::success();
}

}  // namespace ipfwsim
