#pragma once

#include "bench/side-by-side/BenchScreen.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// Something that changes the screen in numbered steps, the same for every recorder. Pictures are
/// made when it is made, so that its own work does not count in what is measured.
class Content {
public:
    Content() = default;
    Content(const Content &) = delete;
    Content &operator=(const Content &) = delete;
    virtual ~Content() = default;

    /// Makes step `number` (from 1 on) visible, as one change where the content has a counter.
    virtual void update(std::uint32_t number) = 0;
    /// From step `number` to the next, in nanoseconds; 0: there are no steps at all.
    [[nodiscard]] virtual std::int64_t interval(std::uint32_t number) const;
    /// Where the step's number is to be seen.
    [[nodiscard]] virtual std::optional<CounterPlace> counter() const { return std::nullopt; }
    /// A flat area on which nothing but the pointer moves, where the pointer's place stands for
    /// the number.
    [[nodiscard]] virtual std::optional<PXPixelRect> pointerArea() const { return std::nullopt; }
    /// What the log says of step `number` besides its time.
    [[nodiscard]] virtual std::string logText() const { return {}; }
};

/// The contents by name. "still" changes nothing, "clock" only a counter, 250 times a second, by
/// which a recording's first frame tells when it was taken.
/// @return none for a name that is not one of them.
std::unique_ptr<Content> contentNamed(std::string_view name, const BenchScreen &screen,
                                      std::uint32_t seed);

inline constexpr const char *kContentNames = "still text animation motion drag pointer clock";

std::unique_ptr<Content> makeAnimationContent(const BenchScreen &screen);
std::unique_ptr<Content> makeMotionContent(const BenchScreen &screen, std::uint32_t seed);
std::unique_ptr<Content> makeTextContent(const BenchScreen &screen, std::uint32_t seed);
std::unique_ptr<Content> makeDragContent(const BenchScreen &screen, std::uint32_t seed);
std::unique_ptr<Content> makePointerContent(const BenchScreen &screen);

/// The same numbers from the same seed on every machine (SplitMix64).
class BenchRandom final {
public:
    explicit BenchRandom(std::uint64_t seed) : _state(seed) { }
    std::uint32_t next()
    {
        _state += 0x9e3779b97f4a7c15ULL;
        std::uint64_t mixed = (_state ^ (_state >> 30U)) * 0xbf58476d1ce4e5b9ULL;
        mixed = (mixed ^ (mixed >> 27U)) * 0x94d049bb133111ebULL;
        return static_cast<std::uint32_t>(mixed >> 32U);
    }
    /// 0 to `end` - 1.
    int below(int end) { return static_cast<int>(next() % static_cast<std::uint32_t>(end)); }

private:
    std::uint64_t _state;
};

/// A line as a build prints it, 20 to 78 characters.
std::string benchTextLine(BenchRandom &random);
