#pragma once

#include <cstddef>
#include <vector>

namespace TarvexDiags::Svg {

struct Point {
  double x = 0;
  double y = 0;
};

/// A series of any length in bounded space: points behind each other share a bucket, of which the
/// lowest and the highest are kept. So no peak is lost, however short it was. For one thread.
class ThinnedSeries {
 public:
  /// Some points behind each other.
  struct Bucket {
    Point lowest;
    Point highest;
    double from = 0;  ///< x of the first
    double to = 0;    ///< x of the last
    std::size_t count = 0;
  };

  /// @param mostBuckets at least 2.
  explicit ThinnedSeries(std::size_t mostBuckets) : m_most(mostBuckets) {}

  /// Takes the next point; one that is no number is left out.
  void add(Point point);

  const std::vector<Bucket>& buckets() const { return m_buckets; }
  /// How many points were taken.
  std::size_t count() const { return m_count; }
  /// The kept points in the order in which they came: at most two to a bucket.
  std::vector<Point> points() const;
  /// The same series in fewer buckets. @param mostBuckets at least 2.
  ThinnedSeries thinned(std::size_t mostBuckets) const;

 private:
  void halve();

  std::size_t m_most;
  std::size_t m_count = 0;
  std::size_t m_perBucket = 1;
  std::vector<Bucket> m_buckets;
};

}  // namespace TarvexDiags::Svg
