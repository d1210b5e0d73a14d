// A plain record that getters copy out while a setter replaces it: a
// sequence lock over the record's bytes held in atomic words.
#ifndef OXCFG_SECTIONS_SEQ_RECORD_H
#define OXCFG_SECTIONS_SEQ_RECORD_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <type_traits>

namespace OxConfigMgr {
namespace sections {

// Readers never block a writer and never write shared memory, so any number
// of them run side by side; a reader that overlaps a store retries and so
// always returns one whole stored value, never a mix of two. Stores are
// serialised with each other by an internal mutex.
//
// Every byte lives in an atomic word, so no access is a data race in the
// language's sense (and the thread sanitizer agrees). Ordering without
// fences: the writer makes the counter odd, stores the words with release,
// then makes it even with release; the reader loads the counter and the
// words with acquire and compares the counter again. A reader that sees a
// word of a store in progress thereby sees that store's odd counter on its
// second look, and retries. On x86 these orders cost nothing over plain
// moves.
//
// A store may say how many leading bytes of the record carry content (the
// rest is zero, as for a text field whose tail is padding); loads then copy
// only those words and zero the rest, so a large, mostly empty record costs
// what its content costs.
template <class T>
class SeqRecord {
  static_assert(std::is_trivially_copyable<T>::value, "copied as bytes");

 public:
  SeqRecord() : SeqRecord(T()) {}
  explicit SeqRecord(const T& value) { store(value); }
  SeqRecord(const SeqRecord&) = delete;
  SeqRecord& operator=(const SeqRecord&) = delete;

  // One whole stored value.
  T load() const {
    T out;
    load(out);
    return out;
  }

  // The same into `out`, without a temporary: for large records.
  void load(T& out) const {
    unsigned char* dst = reinterpret_cast<unsigned char*>(&out);
    for (;;) {
      const uint32_t before = seq_.load(std::memory_order_acquire);
      if (before & 1u) continue;  // a store is under way
      size_t used = used_.load(std::memory_order_acquire);
      if (used > sizeof(T)) used = sizeof(T);  // only a torn pass; retried below
      const size_t words = (used + 7) / 8;
      const size_t whole = words < kWholeWords ? words : kWholeWords;
      for (size_t i = 0; i < whole; ++i) {
        const uint64_t w = words_[i].load(std::memory_order_acquire);
        std::memcpy(dst + i * 8, &w, 8);
      }
      if (words > kWholeWords) {  // the record's last, partial word
        const uint64_t w = words_[kWholeWords].load(std::memory_order_acquire);
        std::memcpy(dst + kWholeWords * 8, &w, sizeof(T) - kWholeWords * 8);
      }
      if (seq_.load(std::memory_order_relaxed) != before) continue;
      if (words * 8 < sizeof(T)) std::memset(dst + words * 8, 0, sizeof(T) - words * 8);
      return;
    }
  }

  // Replaces the value. `usedBytes`: the bytes of `value` past this count
  // are zero (the whole record by default).
  void store(const T& value, size_t usedBytes = sizeof(T)) {
    if (usedBytes > sizeof(T)) usedBytes = sizeof(T);
    uint64_t buf[kWords] = {};
    std::memcpy(buf, &value, usedBytes);
    std::lock_guard<std::mutex> lock(writer_);
    const uint32_t s = seq_.load(std::memory_order_relaxed);
    seq_.store(s + 1, std::memory_order_relaxed);
    used_.store(usedBytes, std::memory_order_release);
    for (size_t i = 0; i < kWords; ++i) words_[i].store(buf[i], std::memory_order_release);
    seq_.store(s + 2, std::memory_order_release);
  }

 private:
  static constexpr size_t kWords = (sizeof(T) + 7) / 8;
  static constexpr size_t kWholeWords = sizeof(T) / 8;
  std::mutex writer_;
  std::atomic<uint32_t> seq_{0};
  std::atomic<size_t> used_{0};
  std::atomic<uint64_t> words_[kWords] = {};
};

}  // namespace sections
}  // namespace OxConfigMgr

#endif  // OXCFG_SECTIONS_SEQ_RECORD_H
