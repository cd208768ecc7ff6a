// The messages of the comparison: "%s %d %f" with 64 different values, the same for everybody.
#ifndef SORREL_BENCH_SAMPLES_HPP
#define SORREL_BENCH_SAMPLES_HPP

#include <array>
#include <cstdio>
#include <string>

class Samples {
public:
    static constexpr int kCount = 64;

    struct Sample {
        int number;
        double fraction;
    };

    explicit Samples(std::size_t wordLength) : m_word(wordLength, 'w') {
        for (int i = 0; i < kCount; ++i) {
            m_samples[static_cast<std::size_t>(i)] = {i * i * i - 1000, 3.14159265358979 * i * i + 0.001 * i};
        }
    }

    const char* word() const { return m_word.c_str(); }
    const std::array<Sample, kCount>& all() const { return m_samples; }

    // The length of all their texts together.
    unsigned long bytes() const {
        unsigned long sum = 0;
        for (const Sample& sample : m_samples) {
            sum += static_cast<unsigned long>(snprintf(nullptr, 0, "%s %d %f", word(), sample.number, sample.fraction));
        }
        return sum;
    }

private:
    std::string m_word;
    std::array<Sample, kCount> m_samples;
};

#endif // SORREL_BENCH_SAMPLES_HPP
