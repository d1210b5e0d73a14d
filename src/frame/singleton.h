// Lazy, thread-safe, process-wide single instances.
#ifndef OXCFG_FRAME_SINGLETON_H
#define OXCFG_FRAME_SINGLETON_H

#include <atomic>
#include <memory>
#include <mutex>

#include "frame/noncopyable.h"

namespace OxConfigMgr {

// CSingleton<T>::Instance() creates T (default constructor) on first use and
// returns the same pointer for the life of the process. Creation is
// double-checked: the common path reads an atomic pointer without locking;
// only the first callers take the static mutex. If T's constructor throws,
// nothing is stored and the exception leaves Instance(). The instance is
// destroyed by static destruction.
template <class T>
class CSingleton : private CNoncopyable {
 public:
  static T* Instance() {
    T* p = s_ptr.load(std::memory_order_acquire);
    if (p) return p;
    std::unique_lock<std::mutex> lock(s_mutex);
    p = s_ptr.load(std::memory_order_relaxed);
    if (!p) {
      s_instance.reset(new T);
      p = s_instance.get();
      s_ptr.store(p, std::memory_order_release);
    }
    return p;
  }

 protected:
  CSingleton() = default;
  ~CSingleton() = default;

 private:
  static std::unique_ptr<T> s_instance;
  static std::atomic<T*> s_ptr;  // published copy of s_instance.get()
  static std::mutex s_mutex;
};

template <class T>
std::unique_ptr<T> CSingleton<T>::s_instance;
template <class T>
std::atomic<T*> CSingleton<T>::s_ptr{nullptr};
template <class T>
std::mutex CSingleton<T>::s_mutex;

}  // namespace OxConfigMgr

#endif  // OXCFG_FRAME_SINGLETON_H
