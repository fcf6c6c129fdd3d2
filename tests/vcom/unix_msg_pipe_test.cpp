// The pipe transport's set-up: descriptor numbers from the command line, the client's pipes and the
// descriptors a child keeps. Server-side pipes are built on numbers far above anything open (900+),
// since a pipe closes its descriptors when destroyed.
#include <errno.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "vcom/unix_msg_pipe.h"

using namespace vorlane::vcom;

namespace {

TEST(UnixMsgPipe, CommandLineGivesReadThenWriteDescriptor) {
  struct Case { const char* cmdLine; int readFd, writeFd; bool serves; };
  const Case cases[] = {
      {"900 901", 900, 901, true},
      {"  900 \t 901  ", 900, 901, true},
      {"900 901 902", 900, 901, true},
      {"912abc 913", 912, 913, true},
      {"99999999999999 901", 0x7FFFFFFF, 901, true},  // saturates instead of overflowing
      {"- 905 906", -905, 905, true},                // blanks may follow the sign; the next word is "905"
      {"900", -1, -1, false},
      {"x 901", -1, -1, false},
      {"-1 901", -1, 901, false},
      {"", -1, -1, false},
  };
  for (const Case& c : cases) {
    UnixMsgPipe pipe(c.cmdLine);
    EXPECT_EQ(pipe.getReadFd(), c.readFd) << '"' << c.cmdLine << '"';
    EXPECT_EQ(pipe.getWriteFd(), c.writeFd) << '"' << c.cmdLine << '"';
    EXPECT_EQ(pipe.initServer(), c.serves) << '"' << c.cmdLine << '"';
  }
  UnixMsgPipe none(static_cast<const char*>(nullptr));
  EXPECT_FALSE(none.initServer());
  int fd;
  EXPECT_FALSE(UnixMsgPipe::getFdNum(nullptr, &fd));
  EXPECT_FALSE(UnixMsgPipe::getFdNum("1", nullptr));
}

// What travels through the ends is checked by every conversation with a child (server_process_test.cpp).
TEST(UnixMsgPipe, ClientArgumentsNameTheChildsEndsWhichTheParentClosesAfterTheStart) {
  UnixMsgPipe client;
  ASSERT_TRUE(client.initClient());
  std::string args = "/usr/lib/server";
  ASSERT_TRUE(client.getCmdLineArgs(args));
  std::string r, w;
  client.getCmdLineArgs(r, w);
  EXPECT_EQ(args, "/usr/lib/server " + r + " " + w);

  const int childRead = std::stoi(r), childWrite = std::stoi(w);
  // Every end is close-on-exec until the child makes its own two inheritable.
  for (int fd : {client.getReadFd(), client.getWriteFd(), childRead, childWrite})
    EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC) << fd;

  client.closeUnusedFdsParent();
  EXPECT_EQ(-1, fcntl(childRead, F_GETFD));
  EXPECT_EQ(-1, fcntl(childWrite, F_GETFD));
  EXPECT_NE(-1, fcntl(client.getReadFd(), F_GETFD));
}

// In a forked child: only the two pipe ends and the caller's extra descriptor stay, the ends without
// close-on-exec. The child reports each failed check as one bit of its exit status.
TEST(UnixMsgPipe, ChildKeepsOnlyItsTwoEnds) {
  UnixMsgPipe client;
  ASSERT_TRUE(client.initClient());
  std::string r, w;
  client.getCmdLineArgs(r, w);
  const int childRead = std::stoi(r), childWrite = std::stoi(w);
  const int stray = dup2(0, 700);
  const int keep = dup2(0, 650);
  ASSERT_EQ(stray, 700);
  ASSERT_EQ(keep, 650);

  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    client.closeUnusedFdsChild(keep);
    int bad = 0;
    if (fcntl(stray, F_GETFD) != -1 || errno != EBADF) bad |= 1;
    if (fcntl(client.getReadFd(), F_GETFD) != -1) bad |= 2;
    if (fcntl(childRead, F_GETFD) != 0) bad |= 4;
    if (fcntl(childWrite, F_GETFD) != 0) bad |= 8;
    if (fcntl(keep, F_GETFD) == -1) bad |= 16;
    if (fcntl(1, F_GETFD) == -1) bad |= 32;
    _exit(bad);
  }
  int status = 0;
  ASSERT_EQ(pid, waitpid(pid, &status, 0));
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  close(stray);
  close(keep);
}

}  // namespace
