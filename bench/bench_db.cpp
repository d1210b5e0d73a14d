// Start-up and database costs.
//
// OX_ConfigMgr_Start fills a process-wide singleton once, so every start is
// measured in a forked worker process that starts the library itself (the
// parent never does); the worker times the call and sends the figure back.
// The same workers time setPassword and loadDatabase on a started library.
// The SQLCipher share of a start is measured in-process with init managers
// and connections constructed directly (no singleton).
#include <benchmark/benchmark.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include "db/db_init.h"
#include "platform/sqlite3do.h"

namespace {

const unsigned char kBenchKey[32] = {0x5a, 0x11, 0x42, 0x99, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18,
                                     19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34};

void copyFile(const std::string& from, const std::string& to) {
  std::ifstream in(from, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  std::ofstream(to, std::ios::binary) << ss.str();
}

void removeTree(const std::string& path) {
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) return;
  if (S_ISDIR(st.st_mode)) {
    if (DIR* d = ::opendir(path.c_str())) {
      while (dirent* e = ::readdir(d)) {
        std::string n = e->d_name;
        if (n != "." && n != "..") removeTree(path + "/" + n);
      }
      ::closedir(d);
    }
    ::rmdir(path.c_str());
  } else {
    ::unlink(path.c_str());
  }
}

// A fresh directory, optionally holding the factory configuration.
struct BenchDir {
  std::string dir;
  explicit BenchDir(bool factory) {
    char tmpl[] = "/tmp/oxcfg-bench-db-XXXXXX";
    dir = ::mkdtemp(tmpl);
    if (!factory) return;
    for (const char* name : {"Config.xml", "PrivateConfig.xml", "QAPIConfig.xml", "ARCConfig.xml",
                             "ConvertCodeConfig.xml", "log4cxx.properties"}) {
      copyFile(std::string(OXCFG_FACTORY_DIR) + "/" + name, dir + "/" + name);
    }
  }
  ~BenchDir() { removeTree(dir); }
};

// A forked process that runs `setup` once, then `op` on every request and
// reports how long each took.
class Worker {
 public:
  Worker(const std::function<bool()>& setup, const std::function<bool()>& op) {
    int toChild[2], fromChild[2];
    if (::pipe(toChild) != 0 || ::pipe(fromChild) != 0) return;
    pid_ = ::fork();
    if (pid_ == 0) {
      ::close(toChild[1]);
      ::close(fromChild[0]);
      char ok = setup() ? 1 : 0;
      if (::write(fromChild[1], &ok, 1) != 1) ::_exit(1);
      char cmd;
      while (::read(toChild[0], &cmd, 1) == 1 && cmd == 'r') {
        auto t0 = std::chrono::steady_clock::now();
        bool done = op();
        double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        if (!done) s = -1;
        if (::write(fromChild[1], &s, sizeof s) != sizeof s) break;
      }
      ::_exit(0);  // no static destruction in the copy of the parent
    }
    ::close(toChild[0]);
    ::close(fromChild[1]);
    to_ = toChild[1];
    from_ = fromChild[0];
    char ok = 0;
    ready_ = pid_ > 0 && ::read(from_, &ok, 1) == 1 && ok == 1;
  }
  ~Worker() {
    if (to_ >= 0) ::close(to_);
    if (from_ >= 0) ::close(from_);
    if (pid_ > 0) ::waitpid(pid_, nullptr, 0);
  }
  bool ready() const { return ready_; }
  // Seconds taken by one run of `op`; negative when it failed.
  double run() {
    char cmd = 'r';
    double s = -1;
    if (::write(to_, &cmd, 1) != 1 || ::read(from_, &s, sizeof s) != sizeof s) return -1;
    return s;
  }

 private:
  pid_t pid_ = -1;
  int to_ = -1, from_ = -1;
  bool ready_ = false;
};

bool chdirTo(const std::string& dir) { return ::chdir(dir.c_str()) == 0; }

// Runs `work` once in a new worker process inside `dir`: its seconds, or -1
// when the worker could not start or the work failed.
double inWorker(const std::string& dir, const std::function<bool()>& work) {
  Worker w([&] { return chdirTo(dir); }, work);
  return w.ready() ? w.run() : -1;
}

// Takes one worker run as the iteration's time; false, with the benchmark
// marked failed by `error`, when the run failed.
bool record(benchmark::State& state, double seconds, const char* error) {
  if (seconds < 0) {
    state.SkipWithError(error);
    return false;
  }
  state.SetIterationTime(seconds);
  return true;
}

bool startLibrary() { return OX_ConfigMgr_Start() == 1; }

// ---- whole start, in worker processes ----------------------------------------

// A factory directory started for the first time: the storage key is made and
// both databases are created.
void BM_Start_FreshDirectory(benchmark::State& state) {
  for (auto _ : state) {
    BenchDir d(true);
    if (!record(state, inWorker(d.dir, startLibrary), "start failed")) break;
  }
}
BENCHMARK(BM_Start_FreshDirectory)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(30);

// A directory started before: the databases are opened and found current.
void BM_Start_ExistingDirectory(benchmark::State& state) {
  BenchDir d(true);
  if (inWorker(d.dir, startLibrary) < 0) return state.SkipWithError("first start failed");
  for (auto _ : state) {
    if (!record(state, inWorker(d.dir, startLibrary), "start failed")) break;
  }
}
BENCHMARK(BM_Start_ExistingDirectory)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(100);

// ---- the database share of a start, cold, in worker processes ----------------

// The configuration database's manager with a fixed key instead of the
// started private configuration's.
class BenchGatewayInit : public OxConfigMgr::CGatewayDBInitManager {
 public:
  bool GetDBKey(unsigned char* key, int& len) override {
    std::memcpy(key, kBenchKey, sizeof kBenchKey);
    len = sizeof kBenchKey;
    return true;
  }
};

// What a start does with the databases, in a process that has not used
// SQLCipher (or OpenSSL) yet: both init managers, the system-log connection
// of the maintenance step and the user step's keyed connection and query
// (and, on a new database, its realm update).
bool databaseSteps(const std::string& dir, bool fresh) {
  BenchGatewayInit gateway;
  OxConfigMgr::CSyslogDBInitManager syslog;
  if (!gateway.InitDB(1) || !syslog.InitDB(0)) return false;
  Sqlite3DO::CBaseDBConn log, users;
  Sqlite3DO::CSQLite3Recordset rs;
  return log.OpenDB(dir + "/Syslog.db3", nullptr, 0, false) &&
         users.OpenDB(dir + "/Config.db3", kBenchKey, 32, true) && users.Execute("select * from Users", rs) &&
         (!fresh || users.ExecuteBound("UPDATE Users SET Realm = ? WHERE Name=?", {"ZX-AG2010(1)", "admin"}));
}

void databasePart(benchmark::State& state, bool fresh) {
  BenchDir d(false);
  if (!fresh) {
    // Made in a worker too: the parent stays free of SQLCipher state.
    if (inWorker(d.dir, [&] { return databaseSteps(d.dir, true); }) < 0) return state.SkipWithError("create");
  }
  for (auto _ : state) {
    if (fresh) {
      ::unlink((d.dir + "/Config.db3").c_str());
      ::unlink((d.dir + "/Syslog.db3").c_str());
    }
    if (!record(state, inWorker(d.dir, [&] { return databaseSteps(d.dir, fresh); }), "database steps failed")) break;
  }
}

void BM_DatabaseSteps_FreshDirectory(benchmark::State& state) { databasePart(state, true); }
void BM_DatabaseSteps_ExistingDirectory(benchmark::State& state) { databasePart(state, false); }
BENCHMARK(BM_DatabaseSteps_FreshDirectory)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(30);
BENCHMARK(BM_DatabaseSteps_ExistingDirectory)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(100);

// ---- credentials, in a started worker -----------------------------------------

void runInStartedWorker(benchmark::State& state, const std::function<bool()>& op) {
  BenchDir d(true);
  Worker w([&] { return chdirTo(d.dir) && OX_ConfigMgr_Start() == 1; }, op);
  if (!w.ready()) {
    state.SkipWithError("start failed");
    return;
  }
  for (auto _ : state) {
    double s = w.run();
    if (s < 0) {
      state.SkipWithError("operation failed");
      break;
    }
    state.SetIterationTime(s);
  }
}

// Digest, salt and session password, and the durable update of the row.
void BM_SetPassword(benchmark::State& state) {
  runInStartedWorker(state, [] {
    return OX_ConfigMgr_GetUserCfg()->setPassword(OxConfigMgr::PASSWORD_LEVEL_STRONG, "bench password",
                                                  "admin") == 0;
  });
}
BENCHMARK(BM_SetPassword)->UseManualTime()->Unit(benchmark::kMicrosecond);

// Reopen the encrypted database and read the user table.
void BM_LoadDatabaseReopen(benchmark::State& state) {
  runInStartedWorker(state, [] { return OX_ConfigMgr_GetUserCfg()->loadDatabase(1); });
}
BENCHMARK(BM_LoadDatabaseReopen)->UseManualTime()->Unit(benchmark::kMicrosecond);

// Read the user table on the open connection.
void BM_LoadDatabaseKeep(benchmark::State& state) {
  runInStartedWorker(state, [] { return OX_ConfigMgr_GetUserCfg()->loadDatabase(0); });
}
BENCHMARK(BM_LoadDatabaseKeep)->UseManualTime()->Unit(benchmark::kMicrosecond);

// ---- the SQLCipher share, warm, in-process ------------------------------------

template <class Init>
void initDB(benchmark::State& state, const char* file, int useKey, bool fresh) {
  BenchDir d(false);
  if (!chdirTo(d.dir)) return state.SkipWithError("chdir");
  Init init;
  const std::string path = d.dir + "/" + file;
  if (!fresh && !init.InitDB(useKey)) return state.SkipWithError("create");
  for (auto _ : state) {
    if (fresh) {
      state.PauseTiming();
      ::unlink(path.c_str());
      state.ResumeTiming();
    }
    if (!init.InitDB(useKey)) {
      state.SkipWithError("InitDB");
      break;
    }
  }
}

void BM_InitDB_CreateConfig(benchmark::State& state) { initDB<BenchGatewayInit>(state, "Config.db3", 1, true); }
void BM_InitDB_CreateSyslog(benchmark::State& state) {
  initDB<OxConfigMgr::CSyslogDBInitManager>(state, "Syslog.db3", 0, true);
}
void BM_InitDB_OpenConfig(benchmark::State& state) { initDB<BenchGatewayInit>(state, "Config.db3", 1, false); }
void BM_InitDB_OpenSyslog(benchmark::State& state) {
  initDB<OxConfigMgr::CSyslogDBInitManager>(state, "Syslog.db3", 0, false);
}
BENCHMARK(BM_InitDB_CreateConfig)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InitDB_CreateSyslog)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InitDB_OpenConfig)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_InitDB_OpenSyslog)->Unit(benchmark::kMicrosecond);

// Open (raw key applied and checked) and close, nothing else.
void BM_OpenDB(benchmark::State& state) {
  const bool keyed = state.range(0) != 0;
  BenchDir d(false);
  const std::string path = d.dir + "/x.db3";
  {
    Sqlite3DO::CBaseDBConn conn;
    if (!conn.OpenDB(path, kBenchKey, 32, keyed) || !conn.Execute("CREATE TABLE t(a)")) {
      return state.SkipWithError("create");
    }
  }
  for (auto _ : state) {
    Sqlite3DO::CBaseDBConn conn;
    if (!conn.OpenDB(path, kBenchKey, 32, keyed)) {
      state.SkipWithError("open");
      break;
    }
  }
  state.SetLabel(keyed ? "raw key" : "plain");
}
BENCHMARK(BM_OpenDB)->Arg(1)->Arg(0)->Unit(benchmark::kMicrosecond);

}  // namespace
