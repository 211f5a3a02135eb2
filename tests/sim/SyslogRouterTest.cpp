// Routing of the kernel's "ipfw:" lines as FreeBSD's syslogd reads syslog.conf.

#include <gtest/gtest.h>

#include "ipfwsim/KernelLog.h"
#include "ipfwsim/SyslogRouter.h"

namespace ipfwsim {
namespace {

std::vector<std::string> route(const std::string& conf, int priority = kLogPriorityInfo) {
    return routeSyslogMessage(conf, "ipfw", kLogFacilitySecurity, priority, "myhost");
}

using Files = std::vector<std::string>;

TEST(SyslogRouter, TheIpfwBlockNamesTheFile) {
    EXPECT_EQ(route("!ipfw\n*.*\t\t/var/log/ipfw.log\n"), Files{"/var/log/ipfw.log"});
    EXPECT_EQ(route("!ipfw\n*.* /var/log/ipfw.log\n!*\n"), Files{"/var/log/ipfw.log"});
    EXPECT_EQ(route("#!ipfw\n*.*\t-/var/log/ipfw.log\n"), Files{"/var/log/ipfw.log"});
    EXPECT_EQ(route("!ppp,ipfw\n*.*\t/var/log/both.log\n"), Files{"/var/log/both.log"});
}

TEST(SyslogRouter, OtherProgramsBlocksDoNotApply) {
    EXPECT_EQ(route("!ppp\n*.*\t/var/log/ppp.log\n!ipfw\n*.*\t/var/log/ipfw.log\n!*\n"
                    "*.*\t/var/log/all.log\n"),
              (Files{"/var/log/ipfw.log", "/var/log/all.log"}));
    EXPECT_TRUE(route("!ipfwx\n*.*\t/var/log/x.log\n").empty());
    EXPECT_TRUE(route("!-ipfw\n*.*\t/var/log/others.log\n").empty());
    EXPECT_EQ(route("!-ppp\n*.*\t/var/log/others.log\n"), Files{"/var/log/others.log"});
}

TEST(SyslogRouter, SelectorsFilterByFacilityAndPriority) {
    EXPECT_EQ(route("security.*\t/var/log/security\n"), Files{"/var/log/security"});
    EXPECT_TRUE(route("*.notice;security.none\t/var/log/messages\n").empty());
    EXPECT_TRUE(route("*.notice\t/var/log/messages\n").empty());
    EXPECT_EQ(route("*.notice\t/var/log/messages\n", kLogPriorityNotice),
              Files{"/var/log/messages"});
    EXPECT_EQ(route("kern,security.info\t/k\n"), Files{"/k"});
    EXPECT_TRUE(route("security.=notice\t/n\n").empty());
    EXPECT_EQ(route("security.!=notice\t/n\n"), Files{"/n"});
    EXPECT_TRUE(route("mail.*\t/m\nbogus.*\t/b\n*.nonsense\t/c\n").empty());
}

TEST(SyslogRouter, OnlyFileActionsCountAndEachOnce) {
    EXPECT_EQ(route("*.*\t@loghost\n*.*\t|/usr/bin/logger\n*.*\troot,operator\n*.*\t*\n"
                    "*.*\t/a\nsecurity.*\t/a\n"),
              Files{"/a"});
}

TEST(SyslogRouter, CommentsBlankLinesAndHostBlocks) {
    EXPECT_EQ(route("# a comment\n\n   \n+otherhost\n*.*\t/remote\n+*\n*.*\t/local\n"),
              Files{"/local"});
    EXPECT_EQ(route("+myhost\n*.*\t/mine\n"), Files{"/mine"});
    EXPECT_EQ(route("+@\n*.*\t/at\n"), Files{"/at"});
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
