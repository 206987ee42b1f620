#include "scripted/Faults.h"

namespace scripted {

namespace {

struct PointName {
  Point point;
  const char* name;
};

const PointName kPointNames[] = {
    {Point::ConnectionMade, "ConnectionMade"},
    {Point::SetConnectTimeOut, "SetConnectTimeOut"},
    {Point::SetRetryTimeOut, "SetRetryTimeOut"},
    {Point::SetReconnectTrial, "SetReconnectTrial"},
    {Point::Connect, "Connect"},
    {Point::Execute, "Execute"},
    {Point::FetchRow, "FetchRow"},
    {Point::FetchResultSet, "FetchResultSet"},
    {Point::ColumnText, "ColumnText"},
    {Point::ColumnInt, "ColumnInt"},
    {Point::StatementHandle, "StatementHandle"},
    {Point::Diagnostics, "Diagnostics"},
    {Point::PoolInit, "PoolInit"},
    {Point::PoolGetConnect, "PoolGetConnect"},
    {Point::PoolReturnConnect, "PoolReturnConnect"},
    {Point::PoolReinit, "PoolReinit"},
    {Point::LoaderMade, "LoaderMade"},
    {Point::Load, "Load"},
    {Point::LoadAfterWrite, "LoadAfterWrite"},
    {Point::IniOpen, "IniOpen"},
    {Point::IniRead, "IniRead"},
    {Point::Decrypt, "Decrypt"},
    {Point::SettingsInstance, "SettingsInstance"},
    {Point::SettingsRead, "SettingsRead"},
    {Point::SettingsWrite, "SettingsWrite"},
    {Point::ResourceOpen, "ResourceOpen"},
    {Point::ResourceRead, "ResourceRead"},
};

}  // namespace

const char* nameOf(Point point) {
  for (const PointName& row : kPointNames) {
    if (row.point == point) {
      return row.name;
    }
  }
  return "unknown";
}

void Faults::throwText(Point point, const std::string& text, int passage) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_texts.push_back(text);
  m_plans.emplace(point, Plan{passage, m_texts.back().c_str()});
}

void Faults::throwOther(Point point, int passage) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_plans.emplace(point, Plan{passage, nullptr});
}

void Faults::clear() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_plans.clear();
  m_texts.clear();
}

bool Faults::isPending() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return !m_plans.empty();
}

void Faults::pass(Point point) {
  bool fails = false;
  const char* text = nullptr;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    auto [plan, end] = m_plans.equal_range(point);
    while (plan != end) {
      const bool always = plan->second.passagesLeft == 0;
      if (always || --plan->second.passagesLeft == 0) {
        fails = true;
        text = plan->second.text;
      }
      plan = !always && plan->second.passagesLeft == 0 ? m_plans.erase(plan) : std::next(plan);
    }
  }
  if (fails && text != nullptr) {
    throw text;
  }
  if (fails) {
    throw OtherFailure(nameOf(point));
  }
}

void throwText(const std::string& text) {
  thread_local std::string last;
  last = text;
  throw last.c_str();
}

}  // namespace scripted
