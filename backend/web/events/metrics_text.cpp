#include "backend/web/events/metrics_text.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <iterator>

#include "backend/platform/utf8.h"

namespace weir {

namespace {

constexpr std::array type_words{"counter", "gauge", "histogram"};

void append_value(std::string& text, double value) {
  if (std::isfinite(value)) {
    fmt::format_to(std::back_inserter(text), " {}\n", value);
  } else {
    text += std::isnan(value) ? " NaN\n" : value > 0 ? " +Inf\n" : " -Inf\n";
  }
}

}  // namespace

MetricsText::Family MetricsText::family(std::string name, Type type, std::string_view help) {
  std::string head =
      fmt::format("# HELP {0} {1}\n# TYPE {0} {2}\n", name, help, type_words[static_cast<std::size_t>(type)]);
  families_.push_back({std::move(name), std::move(head), {}});
  return {*this, families_.size() - 1};
}

void MetricsText::Family::begin_sample(std::string_view suffix, std::string_view labels) {
  std::string& text = samples();
  text += text_.families_[at_].name;
  text += suffix;
  if (labels.empty()) return;
  text += '{';
  text += labels;
  text += '}';
}

void MetricsText::Family::add(std::string_view labels, double value) {
  begin_sample({}, labels);
  append_value(samples(), value);
}

void MetricsText::Family::add(std::string_view labels, std::uint64_t value) {
  begin_sample({}, labels);
  fmt::format_to(std::back_inserter(samples()), " {}\n", value);
}

void MetricsText::Family::add(const DurationHistogram& histogram) {
  add_histogram(DurationHistogram::bounds, histogram.counts(), histogram.sum());
}

void MetricsText::Family::add_histogram(std::span<const double> ends, std::span<const std::uint64_t> counts,
                                        double sum) {
  std::uint64_t count = 0;
  for (std::size_t i = 0; i < counts.size(); ++i) {
    count += counts[i];
    begin_sample("_bucket", i < ends.size() ? fmt::format("le=\"{}\"", ends[i]) : "le=\"+Inf\"");
    fmt::format_to(std::back_inserter(samples()), " {}\n", count);
  }
  begin_sample("_sum", {});
  append_value(samples(), sum);
  begin_sample("_count", {});
  fmt::format_to(std::back_inserter(samples()), " {}\n", count);
}

std::string MetricsText::join() const {
  std::size_t size = 0;
  for (const Samples& family : families_) size += family.head.size() + family.samples.size();
  std::string text;
  text.reserve(size);
  for (const Samples& family : families_) {
    text += family.head;
    text += family.samples;
  }
  return text;
}

std::string metric_label(std::string_view name, std::string_view value) {
  std::string text = std::string(name) + "=\"";
  for (const char c : to_valid_utf8(std::string(value))) {
    if (c == '\n') {
      text += "\\n";
      continue;
    }
    if (c == '"' || c == '\\') text += '\\';
    text += c;
  }
  return text += '"';
}

}  // namespace weir
