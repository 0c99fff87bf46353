#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "backend/base/histogram.h"

namespace weir {

/// Metrics in the text format of Prometheus (version 0.0.4). The samples of a family stand together, in whatever order
/// they are added.
class MetricsText {
 public:
  enum class Type { counter, gauge, histogram };

  /// A metric under one name. Refers to its text.
  class Family {
   public:
    /// `labels`: none, or as `label` and `join` make them.
    void add(std::string_view labels, double value);
    void add(std::string_view labels, std::uint64_t value);
    void add(const DurationHistogram& histogram);
    /// A histogram: the upper ends of the classes in seconds, the number in each class alone (one more than ends), and
    /// the sum.
    void add_histogram(std::span<const double> ends, std::span<const std::uint64_t> counts, double sum);

   private:
    friend class MetricsText;
    Family(MetricsText& text, std::size_t at) : text_(text), at_(at) {}
    std::string& samples() { return text_.families_[at_].samples; }
    void begin_sample(std::string_view suffix, std::string_view labels);

    MetricsText& text_;
    std::size_t at_;
  };

  /// `help` is one line. The text outlives the family.
  Family family(std::string name, Type type, std::string_view help);
  /// The whole text.
  std::string join() const;

 private:
  struct Samples {
    std::string name;
    std::string head;
    std::string samples;
  };
  std::vector<Samples> families_;
};

/// NAME="VALUE", with the value escaped: it may hold anything.
std::string metric_label(std::string_view name, std::string_view value);

}  // namespace weir
