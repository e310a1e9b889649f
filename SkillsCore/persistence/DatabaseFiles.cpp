#include "persistence/DatabaseFiles.h"

#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include <sqlite3.h>

namespace orvanta {

namespace {

sqlite3_vfs* systemLayer() { return sqlite3_vfs_find(nullptr); }

int openFile(sqlite3_vfs* /*layer*/, sqlite3_filename name, sqlite3_file* file, int flags, int* given) {
  sqlite3_vfs* const system = systemLayer();
  const bool isKnownLog = (flags & SQLITE_OPEN_WAL) != 0 && ::access(name, F_OK) == 0;
  if (isKnownLog && system->xOpen(system, name, file, flags & ~SQLITE_OPEN_CREATE, given) == SQLITE_OK)
    return SQLITE_OK;
  return system->xOpen(system, name, file, flags, given);
}

sqlite3_vfs* registered() {
  static sqlite3_vfs layer = *systemLayer();
  layer.zName = "orvanta";
  layer.xOpen = openFile;
  sqlite3_vfs_register(&layer, /*makeDflt=*/0);
  return &layer;
}

}  // namespace

const char* databaseFileLayer() {
  static const sqlite3_vfs* const layer = registered();
  return layer->zName;
}

// Without opening anything: a file that is closed loses the locks that SQLite has on it.
int whyNotWritable(const std::string& database) {
  const std::string folder = std::filesystem::path(database).parent_path().string();
  for (const std::string& path : {folder, database, database + "-wal", database + "-shm"}) {
    if (::access(path.c_str(), W_OK) != 0 && errno != ENOENT) return errno;
  }
  struct statvfs disk {};
  const bool isFull = ::statvfs(folder.c_str(), &disk) == 0 && (disk.f_bavail == 0 || disk.f_favail == 0);
  return isFull ? ENOSPC : 0;
}

}  // namespace orvanta
