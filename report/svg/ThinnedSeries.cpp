#include "report/svg/ThinnedSeries.h"

#include <cmath>

namespace TarvexDiags::Svg {

namespace {

void merge(ThinnedSeries::Bucket& into, const ThinnedSeries::Bucket& next) {
  if (next.lowest.y < into.lowest.y) {
    into.lowest = next.lowest;
  }
  if (next.highest.y > into.highest.y) {
    into.highest = next.highest;
  }
  into.to = next.to;
  into.count += next.count;
}

}  // namespace

void ThinnedSeries::add(Point point) {
  if (!std::isfinite(point.x) || !std::isfinite(point.y)) {
    return;
  }
  ++m_count;
  const Bucket bucket{point, point, point.x, point.x, 1};
  if (!m_buckets.empty() && m_buckets.back().count < m_perBucket) {
    merge(m_buckets.back(), bucket);
    return;
  }
  if (m_buckets.size() == m_most) {
    halve();
    if (m_buckets.back().count < m_perBucket) {
      merge(m_buckets.back(), bucket);
      return;
    }
  }
  m_buckets.push_back(bucket);
}

void ThinnedSeries::halve() {
  m_perBucket *= 2;
  std::vector<Bucket> halved;
  for (std::size_t place = 0; place < m_buckets.size(); ++place) {
    if (place % 2 == 0) {
      halved.push_back(m_buckets[place]);
    } else {
      merge(halved.back(), m_buckets[place]);
    }
  }
  m_buckets = std::move(halved);
}

std::vector<Point> ThinnedSeries::points() const {
  std::vector<Point> points;
  for (const Bucket& bucket : m_buckets) {
    const bool isRising = bucket.lowest.x <= bucket.highest.x;
    points.push_back(isRising ? bucket.lowest : bucket.highest);
    if (bucket.lowest.x != bucket.highest.x) {
      points.push_back(isRising ? bucket.highest : bucket.lowest);
    }
  }
  return points;
}

ThinnedSeries ThinnedSeries::thinned(std::size_t mostBuckets) const {
  ThinnedSeries fewer = *this;
  fewer.m_most = mostBuckets;
  while (fewer.m_buckets.size() > mostBuckets) {
    fewer.halve();
  }
  return fewer;
}

}  // namespace TarvexDiags::Svg
