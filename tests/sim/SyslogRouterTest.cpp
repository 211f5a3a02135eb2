// Routing of the kernel's "ipfw:" lines as FreeBSD's syslogd reads syslog.conf.

#include <gtest/gtest.h>

#include "ipfwsim/KernelLog.h"
#include "ipfwsim/SyslogRouter.h"

namespace ipfwsim {
namespace {

using Files = std::vector<std::string>;

// Each configuration and the files an ipfw line of `priority` goes to.
TEST(SyslogRouter, RoutesAsFreeBSDsSyslogdReadsItsConfiguration) {
    struct Row {
        const char* conf;
        Files files;
        int priority = kLogPriorityInfo;
    };
    const Row rows[] = {
        // The ipfw block names the file, however it is spelt.
        {"!ipfw\n*.*\t\t/var/log/ipfw.log\n", {"/var/log/ipfw.log"}},
        {"#!ipfw\n*.*\t-/var/log/ipfw.log\n", {"/var/log/ipfw.log"}},
        // Other programs' blocks do not apply.
        {"!ppp\n*.*\t/var/log/ppp.log\n!ipfw\n*.*\t/var/log/ipfw.log\n!*\n*.*\t/var/log/all.log\n",
         {"/var/log/ipfw.log", "/var/log/all.log"}},
        {"!ipfwx\n*.*\t/var/log/x.log\n", {}},
        {"!-ipfw\n*.*\t/var/log/others.log\n", {}},
        // Selectors filter by facility and priority.
        {"security.*\t/var/log/security\n", {"/var/log/security"}},
        {"*.notice\t/var/log/messages\n", {"/var/log/messages"}, kLogPriorityNotice},
        {"mail.*\t/m\nbogus.*\t/b\n*.nonsense\t/c\n", {}},
        // Only file actions count, and each file once.
        {"*.*\t@loghost\n*.*\t|/usr/bin/logger\n*.*\troot,operator\n*.*\t*\n*.*\t/a\n"
         "security.*\t/a\n",
         {"/a"}},
        // Comments, blank lines and host blocks.
        {"# a comment\n\n   \n+otherhost\n*.*\t/remote\n+*\n*.*\t/local\n", {"/local"}},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(
            routeSyslogMessage(row.conf, "ipfw", kLogFacilitySecurity, row.priority, "myhost"),
            row.files)
            << row.conf;
    }
}

TEST(SyslogLine, FormatsTheSyslogdPrefixInLocalTime) {
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_EQ(syslogFileLine(1700000000, "myhost", "ipfw: 1 Deny P:2 1.1.1.1 2.2.2.2 [no if info]"),
              "Nov 14 22:13:20 myhost kernel: ipfw: 1 Deny P:2 1.1.1.1 2.2.2.2 [no if info]\n");
    EXPECT_EQ(syslogFileLine(1699000000, "h", "x"), "Nov  3 08:26:40 h kernel: x\n");
}

}  // namespace
}  // namespace ipfwsim
