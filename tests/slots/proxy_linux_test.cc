#include "device/proxy_linux.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <memory>
#include <string>

#include "core/ops_linux.h"
#include "slots/support/tool_test.h"
#include "support/temp_dir.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kAptPath[] = "/etc/apt/apt.conf.d/95tarnvale-kiosk-proxy";
constexpr char kEnvOfNone[] = "TARNVALE_PROXY_MODE=none\n";
constexpr char kEnvOfServer[] =
    "TARNVALE_PROXY_MODE=manual\n"
    "http_proxy=http://proxy.example:3128\n"
    "https_proxy=http://proxy.example:3128\n"
    "HTTP_PROXY=http://proxy.example:3128\n"
    "HTTPS_PROXY=http://proxy.example:3128\n"
    "no_proxy=localhost,127.0.0.1,::1,intranet\n"
    "NO_PROXY=localhost,127.0.0.1,::1,intranet\n"
    "TARNVALE_PROXY_SERVER=proxy.example:3128\n"
    "TARNVALE_PROXY_BYPASS=<local>;intranet\n";
constexpr char kAptOfServer[] =
    "Acquire::http::Proxy \"http://proxy.example:3128\";\n"
    "Acquire::https::Proxy \"http://proxy.example:3128\";\n";

ProxyChange None() {
  return {.mode = "none", .pacUrl = {}, .server = {}, .bypass = {}};
}

ProxyChange Automatic() {
  return {.mode = "auto", .pacUrl = "http://Proxy.example/a", .server = {}, .bypass = {}};
}

ProxyChange Server(const std::string& server = "proxy.example:3128") {
  return {.mode = "manual", .pacUrl = {}, .server = server, .bypass = {"<local>", "intranet"}};
}

// What tells whether a file was touched; that of a missing file is empty.
struct Trace {
  ino_t inode = 0;
  std::int64_t changedNs = 0;
  bool operator==(const Trace&) const = default;
};

Trace TraceOf(const std::string& path) {
  struct stat status = {};
  if (::lstat(path.c_str(), &status) != 0) return {};
  return {status.st_ino, status.st_ctim.tv_sec * 1'000'000'000 + status.st_ctim.tv_nsec};
}

class ApplyProxyTest : public ToolTest {
 protected:
  [[nodiscard]] bool Apply(const ProxyChange& change) const {
    return ApplyProxy(change, etcDir);
  }

  // A file system of two pages in the place of the directory, with an old file and no room left.
  void FillDisk() const {
    ASSERT_TRUE(Exists(etcDir) || ::mkdir(etcDir.c_str(), 0755) == 0);
    ASSERT_EQ(::mount("tmpfs", etcDir.c_str(), "tmpfs", 0, "size=8k"), 0);
    WriteText(envPath, "old\n");
    WriteText(etcDir + "/filler", std::string(4096, 'x'));
  }

  const std::string etcDir = directory.At("etc");
  const std::string envPath = etcDir + "/proxy.env";
};

TEST_F(ApplyProxyTest, WritesBothFilesForAServer) {
  EXPECT_TRUE(Apply(Server()));

  EXPECT_EQ(ReadText(envPath), kEnvOfServer);
  EXPECT_EQ(ModeOf(envPath), 0644U);
  EXPECT_EQ(ReadText(kAptPath), kAptOfServer);
  EXPECT_EQ(ModeOf(kAptPath), 0644U);
  EXPECT_FALSE(Exists(envPath + ".tmp"));
  EXPECT_FALSE(Exists(std::string(kAptPath) + ".tmp"));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ApplyProxyTest, WritesOneFileForAnAutoConfigurationAddress) {
  EXPECT_TRUE(Apply(Automatic()));

  EXPECT_EQ(ReadText(envPath),
            "TARNVALE_PROXY_MODE=auto\nTARNVALE_PAC_URL=http://Proxy.example/a\n"
            "http_proxy=pac+http://Proxy.example/a\nhttps_proxy=pac+http://Proxy.example/a\n");
  EXPECT_FALSE(Exists(kAptPath));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ApplyProxyTest, WritesOneLineWithoutAProxy) {
  EXPECT_TRUE(Apply(None()));

  EXPECT_EQ(ReadText(envPath), kEnvOfNone);
  EXPECT_FALSE(Exists(kAptPath));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ApplyProxyTest, RemovesThePackageManagersFileForTheOtherModes) {
  for (const ProxyChange& change : {None(), Automatic()}) {
    EXPECT_TRUE(Apply(Server()));
    ASSERT_TRUE(Exists(kAptPath));

    EXPECT_TRUE(Apply(change));

    EXPECT_FALSE(Exists(kAptPath)) << change.mode;
  }
}

TEST_F(ApplyProxyTest, MakesItsDirectory) {
  ::umask(0);

  EXPECT_TRUE(Apply(None()));

  EXPECT_EQ(ModeOf(etcDir), 0755U);
}

TEST_F(ApplyProxyTest, TakesADirectoryAsItIs) {
  ASSERT_EQ(::mkdir(etcDir.c_str(), 0700), 0);
  WriteText(etcDir + "/other", "kept");

  EXPECT_TRUE(Apply(None()));

  EXPECT_EQ(ModeOf(etcDir), 0700U);
  EXPECT_EQ(ReadText(etcDir + "/other"), "kept");
}

TEST_F(ApplyProxyTest, TouchesNothingWhenTheFilesAgree) {
  for (const ProxyChange& change : {Server(), Automatic(), None()}) {
    EXPECT_TRUE(Apply(change));
    const Trace env = TraceOf(envPath);
    const Trace apt = TraceOf(kAptPath);
    const Trace holder = TraceOf(etcDir);

    EXPECT_TRUE(Apply(change));

    EXPECT_EQ(TraceOf(envPath), env) << change.mode;
    EXPECT_EQ(TraceOf(etcDir), holder) << change.mode;
    EXPECT_EQ(TraceOf(kAptPath), apt) << change.mode;
  }
}

TEST_F(ApplyProxyTest, RewritesAFileThatWasChangedByHand) {
  EXPECT_TRUE(Apply(Server()));
  WriteText(envPath, "changed", 0600);
  WriteText(kAptPath, "changed", 0600);

  EXPECT_TRUE(Apply(Server()));

  EXPECT_EQ(ReadText(envPath), kEnvOfServer);
  EXPECT_EQ(ModeOf(envPath), 0644U);
  EXPECT_EQ(ReadText(kAptPath), kAptOfServer);
  EXPECT_EQ(ModeOf(kAptPath), 0644U);
}

TEST_F(ApplyProxyTest, WritesWhatThePackageManagerReads) {
  for (const std::string server : {"proxy.example:3128", "10.0.0.7:80", "[2001:db8::7]:65535"}) {
    EXPECT_TRUE(Apply(Server(server)));

    const ProcResult run = RunProcess({FindTool("apt-config"), "dump"}, 30'000);

    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_NE(run.output.find("\nAcquire::http::Proxy \"http://" + server + "\";\n"),
              std::string::npos)
        << run.output;
    EXPECT_NE(run.output.find("\nAcquire::https::Proxy \"http://" + server + "\";\n"),
              std::string::npos)
        << run.output;
  }
}

TEST_F(ApplyProxyTest, FailsWithoutItsFile) {
  WriteText(etcDir, "not a directory");

  EXPECT_FALSE(Apply(Server()));

  EXPECT_EQ(log.Text(), "<3>cannot write " + envPath + ".tmp\n");
  EXPECT_EQ(ReadText(kAptPath), kAptOfServer) << "the package manager's file comes all the same";
}

TEST_F(ApplyProxyTest, MakesNoDirectoryAboveItsOwn) {
  EXPECT_FALSE(ApplyProxy(None(), directory.At("absent/etc")));

  EXPECT_EQ(log.Text(), "<3>cannot write " + directory.At("absent/etc/proxy.env.tmp") + "\n");
  EXPECT_FALSE(Exists(directory.At("absent")));
}

TEST_F(ApplyProxyTest, RemovesThePackageManagersFileAlsoWhenItFails) {
  WriteText(kAptPath, kAptOfServer);
  WriteText(etcDir, "not a directory");

  EXPECT_FALSE(Apply(None()));

  EXPECT_FALSE(Exists(kAptPath));
}

// The result tells whether the file exists, and no more.
TEST_F(ApplyProxyTest, SucceedsOverAnOldFileWhenTheDiskIsFull) {
  FillDisk();

  EXPECT_TRUE(Apply(Server()));

  EXPECT_EQ(log.Text(), "<3>cannot write " + envPath + ".tmp\n");
  EXPECT_EQ(ReadText(envPath), "old\n");
  EXPECT_EQ(ReadText(kAptPath), kAptOfServer);
}

TEST_F(ApplyProxyTest, FailsWhenTheDiskIsFullAndThereIsNoOldFile) {
  FillDisk();
  ASSERT_EQ(::unlink(envPath.c_str()), 0);
  WriteText(etcDir + "/filler2", std::string(4096, 'x'));

  EXPECT_FALSE(Apply(Server()));

  EXPECT_EQ(log.Text(), "<3>cannot write " + envPath + ".tmp\n");
}

TEST_F(ApplyProxyTest, SucceedsOverAnOldFileInADirectoryThatCannotBeWritten) {
  FillDisk();
  ASSERT_EQ(::mount(nullptr, etcDir.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);

  EXPECT_TRUE(Apply(None()));

  EXPECT_EQ(log.Text(), "<3>cannot write " + envPath + ".tmp\n");
  EXPECT_EQ(ReadText(envPath), "old\n");
}

TEST_F(ApplyProxyTest, SucceedsOverADirectoryOfThatName) {
  std::filesystem::create_directories(envPath);

  EXPECT_TRUE(Apply(None()));

  EXPECT_EQ(log.Text(), "<3>cannot replace " + envPath + " (Is a directory)\n");
}

TEST_F(ApplyProxyTest, FailsOverALinkThatLeadsNowhere) {
  std::filesystem::create_directories(envPath + ".tmp");
  ASSERT_EQ(::symlink(directory.At("absent").c_str(), envPath.c_str()), 0);

  EXPECT_FALSE(Apply(None()));

  EXPECT_EQ(log.Text(), "<3>cannot write " + envPath + ".tmp\n");
}

TEST_F(ApplyProxyTest, SucceedsWhenThePackageManagersFileCannotBeWritten) {
  ASSERT_GT(std::filesystem::remove_all("/etc/apt/apt.conf.d"), 0U);

  EXPECT_TRUE(Apply(Server()));

  EXPECT_EQ(ReadText(envPath), kEnvOfServer);
  EXPECT_EQ(log.Text(), "<3>cannot write " + std::string(kAptPath) + ".tmp\n");
}

TEST_F(ApplyProxyTest, SucceedsWhenThePackageManagersFileCannotBeRemoved) {
  ASSERT_EQ(::mkdir(kAptPath, 0755), 0);

  EXPECT_TRUE(Apply(None()));

  EXPECT_TRUE(Exists(kAptPath));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ApplyProxyTest, FollowsNoLinkOutOfItsDirectory) {
  ASSERT_EQ(::mkdir(etcDir.c_str(), 0755), 0);
  WriteText(directory.At("target"), "untouched");
  ASSERT_EQ(::symlink(directory.At("target").c_str(), (envPath + ".tmp").c_str()), 0);
  ASSERT_EQ(::symlink(directory.At("target").c_str(), kAptPath), 0);

  EXPECT_FALSE(Apply(Server()));

  EXPECT_EQ(ReadText(directory.At("target")), "untouched");
  EXPECT_EQ(ReadText(kAptPath), kAptOfServer);
  EXPECT_EQ(log.Text(), "<3>cannot write " + envPath + ".tmp\n");
}

TEST_F(ApplyProxyTest, LeavesNothingBehindButItsFilesHoweverOftenItIsCalled) {
  const int before = CountDescriptors();

  for (const std::string server : {"a:1", "b:2", "c:3"})
    EXPECT_TRUE(Apply(Server(server)));

  EXPECT_EQ(CountDescriptors(), before);
  const std::filesystem::directory_iterator listing(etcDir);
  EXPECT_EQ(std::distance(begin(listing), end(listing)), 1);
}

TEST_F(ApplyProxyTest, TakesTheDirectoryOfTheConfigurationThatTheTableHolds) {
  auto config = std::make_unique<Config>();
  config->etcDir = etcDir;
  const Ops ops = LinuxOps(*config);
  config.reset();

  EXPECT_TRUE(ops.applyProxy(None()));

  EXPECT_EQ(ReadText(envPath), kEnvOfNone);
}

}  // namespace
}  // namespace Tarnvale::KioskService
