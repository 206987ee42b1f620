// The gateway's mutex; not recursive. Meets the standard's BasicLockable requirements.
#pragma once

namespace ZARO {

class ZaroMutex {
 public:
  ZaroMutex();
  ~ZaroMutex();

  ZaroMutex(const ZaroMutex&) = delete;
  ZaroMutex& operator=(const ZaroMutex&) = delete;

  void lock();
  void unlock();

 private:
  struct Impl;
  Impl* m_impl;
};

}  // namespace ZARO
