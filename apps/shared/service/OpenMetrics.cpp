#include "service/OpenMetrics.h"

#include <prometheus/text_serializer.h>

#include <sstream>

namespace {

// The serializer writes the older text form. OpenMetrics names a family of counters without the suffix of its samples,
// and ends in a line of its own.
std::string asOpenMetrics(const std::string& text) {
  static const std::string suffix = "_total";
  std::istringstream lines(text);
  std::string result;
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, 2, "# ") == 0) {
      const std::size_t end = line.find(' ', line.find(' ', 2) + 1);
      if (end != std::string::npos && line.compare(end - suffix.size(), suffix.size(), suffix) == 0) {
        line.erase(end - suffix.size(), suffix.size());
      }
    }
    result += line + "\n";
  }
  return result + "# EOF\n";
}

}  // namespace

prometheus::Histogram::BucketBoundaries policyBuckets() {
  return {0.01, 0.1, 0.5, 1, 2, 5, 10, 60};
}

double secondsOf(std::chrono::nanoseconds duration) {
  return std::chrono::duration<double>(duration).count();
}

double secondsOfNow() {
  return secondsOf(std::chrono::system_clock::now().time_since_epoch());
}

prometheus::Counter& addCounter(prometheus::Registry& registry, const char* name, const char* help) {
  return prometheus::BuildCounter().Name(name).Help(help).Register(registry).Add({});
}

prometheus::Gauge& addGauge(prometheus::Registry& registry, const char* name, const char* help) {
  return prometheus::BuildGauge().Name(name).Help(help).Register(registry).Add({});
}

prometheus::Histogram& addHistogram(prometheus::Registry& registry, const char* name, const char* help,
                                    const prometheus::Histogram::BucketBoundaries& buckets) {
  return prometheus::BuildHistogram().Name(name).Help(help).Register(registry).Add({}, buckets);
}

std::string openMetricsText(const prometheus::Registry& registry) {
  std::ostringstream out;
  prometheus::TextSerializer().Serialize(out, registry.Collect());
  return asOpenMetrics(out.str());
}
