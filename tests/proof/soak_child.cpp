// A host process for the crash and concurrency proofs. It starts the library
// in a working directory and writes settings of every file until it is
// killed, or, in "lost" mode, makes a fixed number of changes from several
// threads and exits. It prints "started" on standard output once
// OX_ConfigMgr_Start has succeeded, so the test knows when killing it means
// killing a writer.
//
//   soak_child start DIR               start, then exit
//   soak_child churn DIR SEED          setters of every file, forever
//   soak_child import DIR PASSWORD     one import of DIR/configurationIn.zip
//   soak_child lost DIR PROC THREADS ITERATIONS
//
// Values written in churn mode come from fixed sets (see soak_values.h) so
// the test can tell a written value from a torn or foreign one.
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "proof/soak_values.h"
#include "support/handles.h"

namespace {

using namespace OxConfigMgr;

int churn(unsigned seed) {
  const oxtest::Handles h;
  if (!h.complete()) return 3;
  CARCCfg arc;
  if (!arc.loadFile()) return 4;
  std::mt19937 rng(seed);
  for (;;) {
    const unsigned r = rng();
    switch (r % 7) {
      case 0:
        h.net->setHttpPort(static_cast<unsigned short>(oxproof::kHttpPortBase + r % oxproof::kHttpPortCount));
        break;
      case 1:
        h.basic->setProductName(oxproof::productName(r % oxproof::kProductNameCount).c_str());
        break;
      case 2:
        h.maintain->setLogLevel(static_cast<XLOG_LEVEL>(r % 8));
        break;
      case 3:
        h.qapi->setQAPIParam(static_cast<int>(r % 2));
        break;
      case 4: {
        const std::string pw = oxproof::password(r % oxproof::kPasswordCount);
        h.users->setPassword(PASSWORD_LEVEL_STRONG, pw.c_str(), "admin");
        break;
      }
      case 5: {
        tagArcCnf cnf;
        arc.getARCParam(cnf);
        cnf.sg.sgPort = static_cast<int32_t>(oxproof::kArcPortBase + r % oxproof::kArcPortCount);
        arc.setARCParam(cnf);
        break;
      }
      default:
        h.events->updateCfg(static_cast<int>(r % 2));
        break;
    }
  }
}

// Thread t of process p owns one port setter; every call writes a new value,
// the last one is lostUpdateValue(slot, iterations). Each iteration also adds
// one row to the system-log database and sets the administrator's password.
int lost(int proc, int threads, int iterations) {
  std::shared_ptr<CNetworkCfg> net = OX_ConfigMgr_GetNetworkCfg();
  std::shared_ptr<CMaintain> log = OX_ConfigMgr_GetLogCfg();
  std::shared_ptr<CUserCfg> user = OX_ConfigMgr_GetUserCfg();
  if (!net || !log || !user) return 3;
  std::vector<std::thread> pool;
  std::vector<int> failures(static_cast<size_t>(threads), 0);
  for (int t = 0; t < threads; ++t) {
    pool.emplace_back([&, t] {
      const int slot = proc * threads + t;
      const oxproof::PortSlot& ps = oxproof::kPortSlots[slot];
      for (int k = 1; k <= iterations; ++k) {
        if ((net.get()->*ps.setter)(static_cast<unsigned short>(oxproof::lostUpdateValue(slot, k))) != 0) {
          ++failures[static_cast<size_t>(t)];
        }
        const std::string sql = "insert into Syslog (RecordTime, UserName, object) values (" +
                                std::to_string(k) + ", 'soak-" + std::to_string(slot) + "', '" +
                                std::to_string(k) + "');";
        if (!log->dbExecute(sql, 10000)) ++failures[static_cast<size_t>(t)];
        const std::string pw = oxproof::password(static_cast<unsigned>(slot * 1000 + k));
        user->setPassword(PASSWORD_LEVEL_STRONG, pw.c_str(), "admin");
      }
    });
  }
  for (std::thread& th : pool) th.join();
  int total = 0;
  for (int f : failures) total += f;
  if (total != 0) std::fprintf(stderr, "soak_child: %d failed calls\n", total);
  return total == 0 ? 0 : 5;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: soak_child churn|import|lost DIR ...\n");
    return 64;
  }
  const std::string mode = argv[1];
  if (::chdir(argv[2]) != 0) return 65;
  if (OX_ConfigMgr_Start() != 1) {
    std::fprintf(stderr, "soak_child: start failed\n");
    return 2;
  }
  std::printf("started\n");
  std::fflush(stdout);
  if (mode == "start") return 0;
  if (mode == "churn" && argc == 4) return churn(static_cast<unsigned>(std::strtoul(argv[3], nullptr, 10)));
  if (mode == "import" && argc == 4) {
    std::shared_ptr<CCfgImportAndExport> io = OX_ConfigMgr_GetCfgImportAndExport();
    return io && io->importConfigData(argv[3]) == IMPORT_OK ? 0 : 6;
  }
  if (mode == "lost" && argc == 6) return lost(std::atoi(argv[3]), std::atoi(argv[4]), std::atoi(argv[5]));
  return 64;
}
