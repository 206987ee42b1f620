#include "scripted/Calls.h"

#include <algorithm>
#include <new>

namespace scripted {

namespace {

bool beginsWith(const std::string& text, const std::string& start) {
  return text.compare(0, start.size(), start) == 0;
}

// "KxDbConnect#12.connect(...)" without the number and the arguments.
std::string operationOf(const std::string& call) {
  std::string operation = call.substr(0, call.find('('));
  const std::size_t number = operation.find('#');
  if (number != std::string::npos) {
    const std::size_t end = operation.find_first_not_of("0123456789", number + 1);
    operation.erase(number, end == std::string::npos ? end : end - number);
  }
  return operation;
}

}  // namespace

std::string quoted(const char* text) {
  return text != nullptr ? '"' + std::string(text) + '"' : "null";
}

void Calls::add(const std::string& operation, const std::vector<std::string>& arguments) {
  std::string call = operation + '(';
  for (const std::string& argument : arguments) {
    call.append(call.back() == '(' ? "" : ", ").append(argument);
  }
  call += ')';
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_calls.push_back(std::move(call));
}

void Calls::addDestructor(const char* name, const std::string& number) noexcept {
  try {
    add("~" + (name + number));
  } catch (const std::bad_alloc&) {
  }
}

std::vector<std::string> Calls::all() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_calls;
}

std::vector<std::string> Calls::beginningWith(const std::string& start) const {
  std::vector<std::string> found;
  const std::lock_guard<std::mutex> lock(m_mutex);
  std::copy_if(m_calls.begin(), m_calls.end(), std::back_inserter(found),
               [&](const std::string& call) { return beginsWith(call, start); });
  return found;
}

std::size_t Calls::countOf(const std::string& operation) const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return static_cast<std::size_t>(std::count_if(
      m_calls.begin(), m_calls.end(), [&](const std::string& call) { return operationOf(call) == operation; }));
}

void Calls::clear() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_calls.clear();
}

}  // namespace scripted
