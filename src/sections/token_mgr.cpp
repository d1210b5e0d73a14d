#include "sections/token_mgr.h"

#include <oxconfigmgr/OxAlarmMonitorCfg.h>
#include <oxconfigmgr/OxConfigMgr.h>

#include <atomic>
#include <cstdio>
#include <cstring>

#include "frame/osl_guard.h"
#include "platform/crypto_util.h"
#include "platform/hex.h"
#include "platform/osl.h"

namespace OxConfigMgr {

namespace {

constexpr size_t kTokenChars = 64;

// Feeds every token made in this process, so that tokens made with the same
// random number in the same tick still differ.
std::atomic<int64_t> g_tokenCounter{0};

}  // namespace

CTokenMgr::CTokenMgr() = default;
CTokenMgr::~CTokenMgr() = default;

int CTokenMgr::setToken() {
  OSL_Guard guard(&m_mutex);
  std::shared_ptr<CAlarmMonitorCfg> cfg = OX_ConfigMgr_GetAlarmMonitorCfg();
  if (!cfg) return -1;
  tagAlarmMonitorCnf record;
  cfg->getAlarmMonitorCfg(record);
  record.token[sizeof record.token - 1] = '\0';
  m_token = record.token;
  return 0;
}

std::string CTokenMgr::updateToken() {
  const unsigned random = OSL_Rand() % 10000u;
  const unsigned tick = static_cast<uint32_t>(OSL_GetTimeTick()) % 1000000000u;
  // The value before the increment: taking and advancing it in one atomic
  // step gives concurrent callers distinct values.
  const long long counter = OSL_AtomicInc(&g_tokenCounter) - 1;
  char seed[64] = {0};
  std::snprintf(seed, sizeof seed, "%04u%u%lld", random, tick, counter);

  unsigned char digest[OxBase::kSha256Bytes];
  OxBase::Sha256(seed, std::strlen(seed), digest);
  std::string token = Vlue2HexString(digest, sizeof digest).substr(0, kTokenChars);

  OSL_Guard guard(&m_mutex);
  m_token = token;
  return token;
}

bool CTokenMgr::checkToken(const std::string& token) {
  OSL_Guard guard(&m_mutex);
  return !m_token.empty() && token.size() == m_token.size() &&
         OxBase::ConstantTimeEquals(token.data(), m_token.data(), token.size());
}

}  // namespace OxConfigMgr
