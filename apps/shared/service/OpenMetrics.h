// Metrics of a service in the text form of OpenMetrics.
#pragma once

#include <prometheus/counter.h>
#include <prometheus/gauge.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>

#include <chrono>
#include <string>

// One metric without labels, in a family of its own.
prometheus::Counter& addCounter(prometheus::Registry& registry, const char* name, const char* help);
prometheus::Gauge& addGauge(prometheus::Registry& registry, const char* name, const char* help);
prometheus::Histogram& addHistogram(prometheus::Registry& registry, const char* name, const char* help,
                                    const prometheus::Histogram::BucketBoundaries& buckets);

// For what a whole policy takes.
prometheus::Histogram::BucketBoundaries policyBuckets();

// A duration, and the time of day, in the unit of metrics.
double secondsOf(std::chrono::nanoseconds duration);
double secondsOfNow();

// What the media type of the text is.
inline constexpr const char* kOpenMetricsType = "application/openmetrics-text; version=1.0.0; charset=utf-8";

std::string openMetricsText(const prometheus::Registry& registry);
