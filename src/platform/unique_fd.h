// The owner of a file descriptor: closed when the owner goes out of scope,
// on every path, so no code of the library closes a descriptor by hand.
// Moves, never copies. Closing never changes errno, so a caller can report
// the error of the call that failed before.
#ifndef OXCFG_PLATFORM_UNIQUE_FD_H
#define OXCFG_PLATFORM_UNIQUE_FD_H

namespace OxBase {

// A file descriptor, closed through Env::Current() (the way the library's
// writable descriptors are opened), so that a test environment sees every
// close. -1 means none.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) noexcept : fd_(fd) {}
  ~UniqueFd() { reset(); }
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept;
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  // Gives the descriptor up without closing it.
  int release() noexcept {
    int fd = fd_;
    fd_ = -1;
    return fd;
  }
  // Closes the held descriptor (if any, errno kept) and holds `fd`.
  void reset(int fd = -1) noexcept;
  // Closes the held descriptor and returns what close returned (errno set on
  // failure), for writers that must know whether the close succeeded; 0 when
  // none was held.
  int close() noexcept;

 private:
  int fd_ = -1;
};

}  // namespace OxBase

#endif  // OXCFG_PLATFORM_UNIQUE_FD_H
