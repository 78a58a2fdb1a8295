#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "tests/support/session.h"

#if !defined(SYS_sync_file_range)
#define SYS_sync_file_range SYS_arm_sync_file_range
#endif

namespace {

// From now on the kernel answers this error to the call, as one that does not know it.
bool Refuse(unsigned call, unsigned error) {
  const auto number = static_cast<unsigned>(offsetof(seccomp_data, nr));
  sock_filter rules[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, number), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
                         BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
                         BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  const sock_fprog program = {4, rules};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

TEST(Kernel, WithoutTheCallsBeyondPosixMakesTheSameBytes) {
  constexpr std::pair<unsigned, unsigned> kRefusals[] = {
      {SYS_pwritev, ENOSYS},         {SYS_fallocate, ENOSYS},  {SYS_fallocate, EOPNOTSUPP},
      {SYS_sync_file_range, ENOSYS}, {SYS_fdatasync, EINVAL}, {SYS_fdatasync, ENOSYS}};
  const Session& session = Sessions()[1];  // reserves space
  Model model(session);
  for (const auto& [call, error] : kRefusals) {
    const MemoryFile file;
    const pid_t child = fork();
    if (child == 0) {
      _exit(Refuse(call, error) ? Play(session, file.path(), session.calls.size(), true).status != 0 : 2);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "call " << call << " refused with " << error;
    EXPECT_EQ(model.difference(file.bytes(), model.whole().size(), true), "");
  }
}

}  // namespace
