#pragma once

// Figures of several candidates, measured in turn: medians, and what is compared with what.

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace TarvexDiags::Bench {

/// @brief The middle one of the figures, or the mean of the two in the middle; 0 of none.
inline double medianOf(std::vector<double> figures) {
  if (figures.empty()) {
    return 0;
  }
  std::sort(figures.begin(), figures.end());
  const std::size_t half = figures.size() / 2;
  return figures.size() % 2 != 0 ? figures[half] : (figures[half - 1] + figures[half]) / 2;
}

/// @brief Collects one figure a round for each candidate. Thread-safety: one thread.
class Comparison {
 public:
  explicit Comparison(std::string unit) : m_unit(std::move(unit)) {}

  void add(const std::string& candidate, double figure) {
    if (m_figures.find(candidate) == m_figures.end()) {
      m_order.push_back(candidate);
    }
    m_figures[candidate].push_back(figure);
  }

  double median(const std::string& candidate) const {
    const auto found = m_figures.find(candidate);
    return found == m_figures.end() ? 0 : medianOf(found->second);
  }

  /// @brief The median of the rounds' ratios: what disturbs a round disturbs both of its figures.
  double ratio(const std::string& candidate, const std::string& peer) const {
    const auto own = m_figures.find(candidate);
    const auto other = m_figures.find(peer);
    if (own == m_figures.end() || other == m_figures.end()) {
      return 0;
    }
    std::vector<double> ratios;
    for (std::size_t round = 0; round < std::min(own->second.size(), other->second.size());
         ++round) {
      ratios.push_back(own->second[round] / other->second[round]);
    }
    return medianOf(ratios);
  }

  /// @brief Prints a table of the medians, with the lowest and highest figure.
  void printFigures() const {
    std::printf("| Candidate | Median | Lowest | Highest | Unit |\n|---|---:|---:|---:|---|\n");
    for (const std::string& name : m_order) {
      const std::vector<double>& figures = m_figures.at(name);
      const auto [low, high] = std::minmax_element(figures.begin(), figures.end());
      std::printf("| %s | %.2f | %.2f | %.2f | %s |\n", name.c_str(), medianOf(figures), *low,
                  *high, m_unit.c_str());
    }
    std::printf("\n");
  }

  /// @brief Prints one line of the table of ratios. @return whether the target is reached
  bool printRatio(const std::string& candidate, const std::string& peer, double target) const {
    const double reached = ratio(candidate, peer);
    std::printf("| %s / %s | %.2f | %.2f | %s |\n", candidate.c_str(), peer.c_str(), reached,
                target, reached >= target ? "yes" : "no");
    return reached >= target;
  }

  static void printRatioHead() {
    std::printf("| Ratio | Median | Target | Reached |\n|---|---:|---:|---|\n");
  }

 private:
  std::string m_unit;
  std::vector<std::string> m_order;
  std::map<std::string, std::vector<double>> m_figures;
};

}  // namespace TarvexDiags::Bench
