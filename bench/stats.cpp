#include "stats.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace kelp::bench {

double Quantile(std::vector<double> values, double fraction) {
    if (values.empty()) {
        return 0;
    }
    // Between two neighbours in proportion: the upper one of the middle two would be no median.
    const double place = fraction * static_cast<double>(values.size() - 1);
    const auto below = values.begin() + static_cast<ptrdiff_t>(place);
    std::nth_element(values.begin(), below, values.end());
    if (below + 1 == values.end()) {
        return *below;
    }
    const double next = *std::min_element(below + 1, values.end());
    return *below + (next - *below) * (place - std::floor(place));
}

double LogLogSlope(const std::vector<double>& x, const std::vector<double>& y) {
    const auto n = static_cast<double>(x.size());
    double sumX = 0;
    double sumY = 0;
    double sumXX = 0;
    double sumXY = 0;
    for (size_t i = 0; i < x.size(); ++i) {
        const double lx = std::log(x[i]);
        const double ly = std::log(y[i]);
        sumX += lx;
        sumY += ly;
        sumXX += lx * lx;
        sumXY += lx * ly;
    }
    return (n * sumXY - sumX * sumY) / (n * sumXX - sumX * sumX);
}

}  // namespace kelp::bench
