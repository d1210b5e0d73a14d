#include <oxconfigmgr/OxConfigMgr.h>

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "core/instance_mgr.h"
#include "frame/osl_guard.h"
#include "support/test_support.h"

using OxConfigMgr::CInstanceMgr;
using OxConfigMgr::CSingleton;

namespace {

class FrameTest : public oxtest::WorkDirTest {};

TEST_F(FrameTest, LifecycleFunctionsAlwaysReturnOne) {
  EXPECT_EQ(OX_ConfigMgr_Init(), 1);
  EXPECT_EQ(OX_ConfigMgr_Stop(), 1);
  EXPECT_EQ(OX_ConfigMgr_Uninit(), 1);
  oxtest::copyFactory(dir());
  EXPECT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_EQ(OX_ConfigMgr_Stop(), 1);
  EXPECT_EQ(OX_ConfigMgr_Uninit(), 1);
  EXPECT_EQ(OX_ConfigMgr_Init(), 1);
  // Stop released nothing.
  EXPECT_TRUE(OX_ConfigMgr_GetSecurityStatus());
  EXPECT_EQ(CSingleton<CInstanceMgr>::Instance()->stop(), 1);
}

TEST_F(FrameTest, GettersBeforeStartAreEmpty) {
  EXPECT_EQ(OX_ConfigMgr_GetBackupVersion(), "");
  EXPECT_FALSE(OX_ConfigMgr_GetBasicCfg());
  EXPECT_FALSE(OX_ConfigMgr_GetLogCfg());
  EXPECT_FALSE(OX_ConfigMgr_GetPrivateCfg());
  EXPECT_FALSE(OX_ConfigMgr_GetUserCfg());
  EXPECT_FALSE(OX_ConfigMgr_GetNATGateway());
  EXPECT_FALSE(OX_ConfigMgr_GetSecurityStatus());
  EXPECT_FALSE(OX_ConfigMgr_GetNetworkCfg());
  EXPECT_FALSE(OX_ConfigMgr_GetOpenSSLCert());
  EXPECT_FALSE(OX_ConfigMgr_GetTimeCfg());
  EXPECT_FALSE(OX_ConfigMgr_GetQAPICfg());
  EXPECT_FALSE(OX_ConfigMgr_GetAlarmMonitorCfg());
  EXPECT_FALSE(OX_ConfigMgr_GetHttpHostCfg());
  EXPECT_FALSE(OX_ConfigMgr_GetEventSubCfg());
  EXPECT_FALSE(OX_ConfigMgr_GetWispListenCfg());
  EXPECT_FALSE(OX_ConfigMgr_GetCfgImportAndExport());
  EXPECT_FALSE(OX_ConfigMgr_GetDeviceMgmtCfg());
  EXPECT_FALSE(OX_ConfigMgr_GetStorageConfig());
  EXPECT_FALSE(OX_ConfigMgr_GetMetadataConfig());
}

TEST_F(FrameTest, ArcAndConvertCodeHandlesStayEmptyAfterStart) {
  oxtest::copyFactory(dir());
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_FALSE(OX_ConfigMgr_GetARCCfg());
  EXPECT_FALSE(OX_ConfigMgr_GetConvertCodeCfg());
  // Handles are shared copies of one object.
  EXPECT_EQ(OX_ConfigMgr_GetSecurityStatus().get(), OX_ConfigMgr_GetSecurityStatus().get());
}

TEST_F(FrameTest, ConcurrentFirstCallsCreateOneManager) {
  constexpr int kThreads = 16;
  std::atomic<int> ready{0};
  std::vector<CInstanceMgr*> seen(kThreads);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      ready.fetch_add(1);
      while (ready.load() < kThreads) {
      }
      OX_ConfigMgr_GetNetworkCfg();
      seen[i] = CSingleton<CInstanceMgr>::Instance();
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(std::set<CInstanceMgr*>(seen.begin(), seen.end()).size(), 1u);
}

TEST_F(FrameTest, GuardReleasesEarlyAndOnce) {
  OSL_Mutex mutex;
  {
    OxConfigMgr::OSL_Guard guard(&mutex);
    EXPECT_FALSE(mutex.impl.try_lock());
    guard.Release();
    EXPECT_TRUE(mutex.impl.try_lock());
    mutex.impl.unlock();
    guard.Release();  // no second unlock
  }
  OxConfigMgr::OSL_Guard nullGuard(nullptr);
  nullGuard.Release();
}

TEST_F(FrameTest, StartShedsTheTemporariesOfKilledWriters) {
  oxtest::copyFactory(dir());
  pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ASSERT_GT(child, 0);
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  const std::string stale = "." + std::string("Config.xml.tmp.") + std::to_string(child) + ".3";
  const std::string live = ".QAPIConfig.xml.tmp." + std::to_string(::getpid()) + ".9";
  oxtest::writeFile(path(stale), "<Config><half");
  oxtest::writeFile(path(live), "<Config>");
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_FALSE(oxtest::fileExists(path(stale)));
  EXPECT_TRUE(oxtest::fileExists(path(live)));  // its writer may still finish
}

}  // namespace
