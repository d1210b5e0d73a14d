// Log levels of the library's logging, as used by the maintenance settings.
#ifndef OXCONFIGMGR_OXLOGLEVEL_H
#define OXCONFIGMGR_OXLOGLEVEL_H

// The underlying type is fixed so that any int is a valid XLOG_LEVEL: a
// stored level may lie outside 0..7 (it is then treated as "OFF").
enum XLOG_LEVEL : int {
  XLOG_ALL = 0,
  XLOG_TRACE = 1,
  XLOG_DEBUG = 2,
  XLOG_INFO = 3,
  XLOG_WARN = 4,
  XLOG_ERROR = 5,
  XLOG_FATAL = 6,
  XLOG_OFF = 7,
};

#endif  // OXCONFIGMGR_OXLOGLEVEL_H
