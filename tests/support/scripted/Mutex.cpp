// ZARO::ZaroMutex: the standard one.
#include <mutex>

#include "ZaroMutex.h"

struct ZARO::ZaroMutex::Impl {
  std::mutex mutex;
};

ZARO::ZaroMutex::ZaroMutex() : m_impl(new Impl) {}

ZARO::ZaroMutex::~ZaroMutex() {
  delete m_impl;
}

void ZARO::ZaroMutex::lock() {
  m_impl->mutex.lock();
}

void ZARO::ZaroMutex::unlock() {
  m_impl->mutex.unlock();
}
