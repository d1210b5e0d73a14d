#ifndef OXCFG_FRAME_NONCOPYABLE_H
#define OXCFG_FRAME_NONCOPYABLE_H

namespace OxConfigMgr {

// Base class of objects that must never be copied or assigned.
class CNoncopyable {
 protected:
  CNoncopyable() = default;
  ~CNoncopyable() = default;

 public:
  CNoncopyable(const CNoncopyable&) = delete;
  CNoncopyable& operator=(const CNoncopyable&) = delete;
};

}  // namespace OxConfigMgr

#endif  // OXCFG_FRAME_NONCOPYABLE_H
