#include "ZaroMutex.h"

#include <mutex>

namespace ZARO {

struct ZaroMutex::Impl {
  std::mutex mutex;
};

ZaroMutex::ZaroMutex() : m_impl(new Impl) {}
ZaroMutex::~ZaroMutex() {
  delete m_impl;
}
void ZaroMutex::lock() {
  m_impl->mutex.lock();
}
void ZaroMutex::unlock() {
  m_impl->mutex.unlock();
}

}  // namespace ZARO
