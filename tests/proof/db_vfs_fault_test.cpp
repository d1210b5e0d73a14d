// Both databases' creation (a first start) with the database engine's own
// I/O failing: a wrapping SQLite VFS, installed as the default one in a
// forked first start, fails one open, write, sync or truncate of the
// database files after another. After each failure the next start, without
// faults, succeeds, and each database opens with its key and holds its
// schema.
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cstring>
#include <string>

#include "db/db_test_support.h"

namespace {

enum class VfsOp { kOpen, kWrite, kSync, kTruncate };

// The default VFS with the `failAt`-th call (counted from 1) of one
// operation on a database file or its journal failing once.
struct FaultVfs {
  static sqlite3_vfs* real;
  static VfsOp op;
  static int failAt;
  static int calls;
  static bool fired;

  struct File {
    sqlite3_file base;
    sqlite3_file* real;  // the real VFS's file, allocated right after
    bool counted;
  };

  static bool hit(bool counted, VfsOp which) {
    if (!counted || which != op || ++calls != failAt) return false;
    fired = true;
    return true;
  }
  static sqlite3_file* inner(sqlite3_file* f) { return reinterpret_cast<File*>(f)->real; }
  static bool counted(sqlite3_file* f) { return reinterpret_cast<File*>(f)->counted; }

  static int Close(sqlite3_file* f) { return inner(f)->pMethods->xClose(inner(f)); }
  static int Read(sqlite3_file* f, void* b, int n, sqlite3_int64 o) {
    return inner(f)->pMethods->xRead(inner(f), b, n, o);
  }
  static int Write(sqlite3_file* f, const void* b, int n, sqlite3_int64 o) {
    if (hit(counted(f), VfsOp::kWrite)) return SQLITE_IOERR_WRITE;
    return inner(f)->pMethods->xWrite(inner(f), b, n, o);
  }
  static int Truncate(sqlite3_file* f, sqlite3_int64 size) {
    if (hit(counted(f), VfsOp::kTruncate)) return SQLITE_IOERR_TRUNCATE;
    return inner(f)->pMethods->xTruncate(inner(f), size);
  }
  static int Sync(sqlite3_file* f, int flags) {
    if (hit(counted(f), VfsOp::kSync)) return SQLITE_IOERR_FSYNC;
    return inner(f)->pMethods->xSync(inner(f), flags);
  }
  static int FileSize(sqlite3_file* f, sqlite3_int64* size) { return inner(f)->pMethods->xFileSize(inner(f), size); }
  static int Lock(sqlite3_file* f, int l) { return inner(f)->pMethods->xLock(inner(f), l); }
  static int Unlock(sqlite3_file* f, int l) { return inner(f)->pMethods->xUnlock(inner(f), l); }
  static int CheckReservedLock(sqlite3_file* f, int* out) {
    return inner(f)->pMethods->xCheckReservedLock(inner(f), out);
  }
  static int FileControl(sqlite3_file* f, int op, void* arg) {
    return inner(f)->pMethods->xFileControl(inner(f), op, arg);
  }
  static int SectorSize(sqlite3_file* f) { return inner(f)->pMethods->xSectorSize(inner(f)); }
  static int DeviceCharacteristics(sqlite3_file* f) { return inner(f)->pMethods->xDeviceCharacteristics(inner(f)); }
  static int ShmMap(sqlite3_file* f, int pg, int sz, int extend, void volatile** p) {
    return inner(f)->pMethods->xShmMap(inner(f), pg, sz, extend, p);
  }
  static int ShmLock(sqlite3_file* f, int offset, int n, int flags) {
    return inner(f)->pMethods->xShmLock(inner(f), offset, n, flags);
  }
  static void ShmBarrier(sqlite3_file* f) { inner(f)->pMethods->xShmBarrier(inner(f)); }
  static int ShmUnmap(sqlite3_file* f, int del) { return inner(f)->pMethods->xShmUnmap(inner(f), del); }

  static const sqlite3_io_methods methods;

  static int Open(sqlite3_vfs*, const char* name, sqlite3_file* f, int flags, int* outFlags) {
    File* file = reinterpret_cast<File*>(f);
    file->base.pMethods = nullptr;
    file->real = reinterpret_cast<sqlite3_file*>(file + 1);
    file->counted = name && std::strstr(name, ".db3") != nullptr;
    if (hit(file->counted, VfsOp::kOpen)) return SQLITE_CANTOPEN;
    const int rc = real->xOpen(real, name, file->real, flags, outFlags);
    if (file->real->pMethods) file->base.pMethods = &methods;
    return rc;
  }
  static int Delete(sqlite3_vfs*, const char* name, int syncDir) { return real->xDelete(real, name, syncDir); }
  static int Access(sqlite3_vfs*, const char* name, int flags, int* out) {
    return real->xAccess(real, name, flags, out);
  }
  static int FullPathname(sqlite3_vfs*, const char* name, int n, char* out) {
    return real->xFullPathname(real, name, n, out);
  }

  // Installs the wrapper as the default VFS of this process.
  static void install(VfsOp which, int at) {
    real = sqlite3_vfs_find(nullptr);
    op = which;
    failAt = at;
    static sqlite3_vfs vfs;
    vfs = *real;
    vfs.zName = "oxcfg-fault";
    vfs.szOsFile = static_cast<int>(sizeof(File)) + real->szOsFile;
    vfs.xOpen = Open;
    vfs.xDelete = Delete;
    vfs.xAccess = Access;
    vfs.xFullPathname = FullPathname;
    vfs.pAppData = nullptr;
    sqlite3_vfs_register(&vfs, 1);
  }
};

sqlite3_vfs* FaultVfs::real = nullptr;
VfsOp FaultVfs::op = VfsOp::kOpen;
int FaultVfs::failAt = 0;
int FaultVfs::calls = 0;
bool FaultVfs::fired = false;
const sqlite3_io_methods FaultVfs::methods = {
    2,        Close,        Read,     Write,    Truncate,  Sync,
    FileSize, Lock,         Unlock,   CheckReservedLock, FileControl, SectorSize,
    DeviceCharacteristics,  ShmMap,   ShmLock,  ShmBarrier, ShmUnmap,
    nullptr,  nullptr};

int reap(pid_t pid) {
  int status = 0;
  if (::waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class DatabaseVfsFaultTest : public oxtest::DBDirTest {};

TEST_F(DatabaseVfsFaultTest, FirstStartFailingInTheEngineAtEveryCallIsFollowedByAGoodStart) {
  struct Case {
    VfsOp op;
    const char* name;
  };
  const Case cases[] = {
      {VfsOp::kOpen, "open"}, {VfsOp::kWrite, "write"}, {VfsOp::kSync, "sync"}, {VfsOp::kTruncate, "truncate"}};
  for (const Case& c : cases) {
    int failedStarts = 0;
    int n = 1;
    for (; n <= 200; ++n) {
      SCOPED_TRACE(std::string(c.name) + " number " + std::to_string(n));
      // A fresh directory: no database, no storage key yet.
      for (const char* f : {"Config.db3", "Config.db3-journal", "Syslog.db3", "Syslog.db3-journal"}) {
        ::unlink(path(f).c_str());
      }
      oxtest::copyFactory(dir());
      const pid_t pid = ::fork();
      if (pid == 0) {
        FaultVfs::install(c.op, n);
        const int rc = OX_ConfigMgr_Start();
        ::_exit(FaultVfs::fired ? (rc == 1 ? 10 : 11) : 12);
      }
      const int first = reap(pid);
      if (first == 12) break;  // past the last call of that kind
      ASSERT_TRUE(first == 10 || first == 11) << first;
      failedStarts += first == 11;
      const pid_t again = ::fork();
      if (again == 0) ::_exit(OX_ConfigMgr_Start() == 1 ? 0 : 1);
      ASSERT_EQ(reap(again), 0) << "no start after the failure";
      OxConfigMgr::CPrivateCfg priv;
      ASSERT_TRUE(priv.loadFile());
      OxConfigMgr::tagEncryptInfo info;
      priv.getEncryptParams(info);
      const std::string key = Vlue2HexString(info.storageKey, 32);
      const std::string tables = "SELECT count(*) > 0 FROM sqlite_master WHERE type = 'table';";
      EXPECT_EQ(oxtest::sqlShell("sqlcipher", path("Config.db3"), "PRAGMA key = \"x'" + key + "'\";\n" + tables)
                    .output,
                "1\n");
      EXPECT_EQ(oxtest::sqlShell("sqlite3", path("Syslog.db3"), tables).output, "1\n");
    }
    EXPECT_LT(n, 200) << c.name;
    RecordProperty(c.name, n - 1);
    RecordProperty(std::string(c.name) + "-failed-starts", failedStarts);
    if (c.op != VfsOp::kTruncate) {
      EXPECT_GT(failedStarts, 0) << c.name << ": no failure reached the start";
    }
  }
}

}  // namespace
