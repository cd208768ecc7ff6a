// Random formats and values, in as many threads as there are processors: what is formatted without vsnprintf is what
// vsnprintf makes of it. SORREL_STORM_TIMES makes it longer.
#include "both_formatters.hpp"
#include "storm_size.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <random>
#include <sys/types.h>
#include <thread>

namespace {

constexpr std::uint64_t kSeed = 20261121;
constexpr int kValues = 200000;
constexpr int kParts = 64; // of the sweep, each with a sequence of its own, whatever the number of threads
constexpr double kLeastPlainShare = 0.6;
constexpr const char* kIntegerConversions[] = {"d", "i", "u", "x"};
constexpr const char* kTexts[] = {
    "", "a", "eth0", "%d", "/etc/sorrel.cfg", "\xc3\xa4\xff", "a sentence of several words"};
constexpr const char* kLiterals[] = {"", "", " ", ", ", ": ", "=", " of ", "%% ", "value ", "a long text between two "};
constexpr const char* kLeftDirectives[] = {"5d", "-4x", "o", ".3d", "hhd", "+i"}; // of an int

class Random {
public:
    explicit Random(std::uint64_t seed) : m_engine(seed) {}

    std::uint64_t bits() { return m_engine(); }
    int below(int end) { return static_cast<int>(bits() % static_cast<std::uint64_t>(end)); }

    template <typename Choice, std::size_t kCount>
    Choice oneOf(const Choice (&choices)[kCount]) {
        return choices[bits() % kCount];
    }

    // Of any number of digits.
    std::uint64_t integer() { return bits() >> below(64); }
    std::uint64_t signedInteger() { return below(2) == 0 ? integer() : 0 - integer(); }

    double number() {
        const double value = magnitude();
        const double neighbour = below(8) == 0 ? std::nextafter(value, below(2) == 0 ? 0.0 : 1e308) : value;
        return below(2) == 0 ? neighbour : -neighbour;
    }

private:
    double magnitude() {
        switch (below(8)) {
        case 0:
            return anyNumber();
        case 1: // exact halves of some digit
            return std::ldexp(static_cast<double>(integer() >> 11U), -below(20));
        case 2:
            return std::ldexp(static_cast<double>(bits() >> 11U), below(200) - 160);
        case 3:
            return static_cast<double>(integer());
        default: // as people write them
            return static_cast<double>(integer() >> 14U) / std::pow(10, below(10));
        }
    }

    // Also what is no number, and what is hardly one.
    double anyNumber() {
        const std::uint64_t from = bits();
        double value = 0;
        std::memcpy(&value, &from, sizeof value);
        return value;
    }

    std::mt19937_64 m_engine;
};

struct Counts {
    std::uint64_t values = 0;
    std::uint64_t plain = 0; // of them
};

// One sequence of formats and values.
class Sweep {
public:
    explicit Sweep(std::uint64_t seed) : m_random(seed) {}

    // Stops at the first difference.
    Counts run(std::uint64_t values) {
        while (m_counts.values < values && !m_failed) {
            m_format = m_random.oneOf(kLiterals);
            addDirective<0>();
        }
        return m_counts;
    }

private:
    static constexpr int kMostDirectives = 3;

    // Behind those of the arguments; or, sometimes, that was all.
    template <int kDirectives, typename... Arguments>
    void addDirective(Arguments... arguments) {
        if constexpr (kDirectives < kMostDirectives) {
            if (kDirectives == 0 || m_random.below(3) != 0) {
                return addAnyDirective<kDirectives>(arguments...);
            }
        }
        compare(arguments...);
    }

    template <int kDirectives, typename... Arguments>
    void addAnyDirective(Arguments... arguments) {
        switch (m_random.below(16)) {
        case 0:
            return add<kDirectives>("c", 1 + m_random.below(255), arguments...);
        case 1:
            return add<kDirectives>("p", reinterpret_cast<const void*>(1 + m_random.integer() / 2), arguments...);
        case 2:
            return add<kDirectives>(m_random.oneOf(kLeftDirectives), 0, arguments...);
        case 3:
        case 4:
            return add<kDirectives>("s", m_random.oneOf(kTexts), arguments...);
        case 5:
            return addInteger<kDirectives, int>("", arguments...);
        case 6:
            return addInteger<kDirectives, long>("l", arguments...);
        case 7:
            return addInteger<kDirectives, long long>("ll", arguments...);
        case 8:
            return addInteger<kDirectives, ssize_t>("z", arguments...);
        default:
            return add<kDirectives>(precision() + "f", m_random.number(), arguments...);
        }
    }

    template <int kDirectives, typename Integer, typename... Arguments>
    void addInteger(const std::string& length, Arguments... arguments) {
        const auto value = static_cast<Integer>(m_random.signedInteger());
        add<kDirectives>(length + m_random.oneOf(kIntegerConversions), value, arguments...);
    }

    std::string precision() {
        switch (m_random.below(8)) {
        case 0:
            return "." + std::to_string(m_random.below(100));
        case 1:
        case 2:
        case 3:
            return "." + std::to_string(m_random.below(10));
        default:
            return "";
        }
    }

    template <int kDirectives, typename Value, typename... Arguments>
    void add(const std::string& directive, Value value, Arguments... arguments) {
        m_format += '%';
        m_format += directive;
        m_format += m_random.oneOf(kLiterals);
        addDirective<kDirectives + 1>(arguments..., value);
    }

    template <typename... Arguments>
    void compare(Arguments... arguments) {
        if (m_random.below(16) != 0) {
            compareIn(m_usual, arguments...);
        } else {
            BothFormatters tight(1 + static_cast<std::size_t>(m_random.below(64)));
            compareIn(tight, arguments...);
        }
    }

    template <typename... Arguments>
    void compareIn(BothFormatters& both, Arguments... arguments) {
        const Formatted formatted = both.format(m_format.c_str(), arguments...);
        m_counts.values += sizeof...(arguments);
        m_counts.plain += formatted == Formatted::kPlainly ? sizeof...(arguments) : 0;
        if (formatted == Formatted::kDifferently) {
            m_failed = true;
            ADD_FAILURE() << '\'' << m_format << "'\n" << both.description();
        }
    }

    Random m_random;
    BothFormatters m_usual;
    std::string m_format;
    Counts m_counts;
    bool m_failed = false;
};

// Sweeps all parts, and adds up.
Counts sweep(std::uint64_t valuesOfEach) {
    std::atomic<std::uint64_t> next{0};
    std::atomic<std::uint64_t> values{0};
    std::atomic<std::uint64_t> plain{0};
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < std::max(1U, std::thread::hardware_concurrency()); ++i) {
        threads.emplace_back([&] {
            for (std::uint64_t part = next++; part < kParts; part = next++) {
                const Counts counts = Sweep(kSeed + part).run(valuesOfEach);
                values += counts.values;
                plain += counts.plain;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return {values, plain};
}

} // namespace

TEST(PlainFormatSweep, IsWhatVsnprintfMakesOfRandomFormatsAndValues) {
    const Counts counts = sweep(static_cast<std::uint64_t>(std::max(1, stormCount(kValues) / kParts)));
    const double share = static_cast<double>(counts.plain) / static_cast<double>(counts.values);
    std::printf("%llu values compared, %.1f %% of them formatted without vsnprintf; seed %llu\n",
                static_cast<unsigned long long>(counts.values), share * 100, static_cast<unsigned long long>(kSeed));
    EXPECT_GE(share, kLeastPlainShare); // or it proves nothing
}
