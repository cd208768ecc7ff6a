// Finds the parts of a ring where records have been lost that the recorder had written and not taken away.
#ifndef SORREL_TOOLS_LOSS_FINDER_HPP
#define SORREL_TOOLS_LOSS_FINDER_HPP

#include "recorder_format.hpp"
#include "ring_reader.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace sorrelctl {

// A lap begins at the ring's start and goes on without a gap. The present one ends with the newest record; behind it
// may lie the rest of the record that was overwritten last, and then the rest of the lap before: up to where the record
// that began the present lap had no room. Only behind that lie rests of still earlier laps, in which nothing is missed.
class LossFinder {
public:
    LossFinder(Stretch ring, const std::vector<RecordPlace>& places, std::uint64_t newest,
               std::optional<std::size_t> torn)
        : m_ring(ring), m_places(places), m_newest(newest), m_torn(torn) {}

    // For a ring that holds records.
    std::vector<Stretch> find() {
        const RecordPlace& first = m_places.front();
        add(m_ring.begin, first.begin);
        std::size_t lapBegin = first.begin;
        for (std::size_t i = 0; i < m_places.size(); ++i) {
            const RecordPlace& place = m_places[i];
            const bool isLast = i + 1 == m_places.size();
            const std::size_t next = isLast ? m_ring.end : m_places[i + 1].begin;
            if (!isLast && place.sequence < m_places[i + 1].sequence) {
                add(place.end, next);
                continue;
            }
            const bool isOfLapBefore = place.sequence != m_newest && lapBegin + kLargest <= m_ring.end;
            if (isOfLapBefore && first.begin == m_ring.begin && place.sequence + 1 != first.sequence) {
                add(place.end, next);
            }
            lapBegin = next;
        }
        return std::move(m_lost);
    }

private:
    static constexpr std::size_t kLargest = recorder::alignedSize(recorder::record::kLargest);

    // The record that was being written may have destroyed any of those whose place it takes.
    void add(std::size_t begin, std::size_t end) {
        const bool isWritten = m_torn && begin >= *m_torn && begin - *m_torn < kLargest;
        if (begin < end && !isWritten) {
            m_lost.push_back({begin, end});
        }
    }

    const Stretch m_ring;
    const std::vector<RecordPlace>& m_places;
    const std::uint64_t m_newest;
    const std::optional<std::size_t> m_torn;
    std::vector<Stretch> m_lost;
};

} // namespace sorrelctl

#endif // SORREL_TOOLS_LOSS_FINDER_HPP
