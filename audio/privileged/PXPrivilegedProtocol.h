#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What the program and its root helper say to each other over the helper's standard input and
/// output. No shell and no quoting: a path may hold blanks, line ends and anything but a NUL.
///
/// The helper says `kGreeting` and a line end once it runs, which is when the user has let it in.
/// A request is its payload's length in decimal digits, a line end and the payload: the program and
/// each of its arguments, every word with a NUL behind it. Each request is answered by one line,
/// "STATUS TEXT": a `PXPrivilegedStatus`, and for a failure what failed, for the log.
namespace PXPrivilegedProtocol {

inline constexpr std::string_view kGreeting = "tolvane-privileged-helper 1";
/// Bytes of a payload: room for a few of the longest paths. Longer ones are not read.
inline constexpr std::size_t kLongestPayload = 32768;
inline constexpr int kSecondsWithoutRequest = 60; ///< After which the helper leaves.

inline std::string request(const std::vector<std::string> &words)
{
    std::string payload;
    for (const std::string &word : words)
        payload.append(word.c_str(), word.size() + 1);
    return std::to_string(payload.size()) + '\n' + payload;
}

/// None where the last word has no NUL behind it.
inline std::optional<std::vector<std::string>> wordsOfPayload(std::string_view payload)
{
    std::vector<std::string> words;
    while (!payload.empty()) {
        const std::size_t end = payload.find('\0');
        if (end == std::string_view::npos)
            return std::nullopt;
        words.emplace_back(payload.substr(0, end));
        payload.remove_prefix(end + 1);
    }
    return words;
}

} // namespace PXPrivilegedProtocol

/// How a task ended: the status codes that logs and callers know;
/// `PXAuthentication::authorizationErrorString` has their texts.
enum PXPrivilegedStatus {
    PXPrivilegedDone = 0,
    PXPrivilegedInvalidParameter = -60001,
    PXPrivilegedDenied = -60005,
    PXPrivilegedCancelled = -60006, ///< By the user, who need not be told.
    PXPrivilegedNoInteraction = -60007, ///< Nobody was there who could have asked the user.
    PXPrivilegedFailed = -60008, ///< The task was allowed, and failed.
    PXPrivilegedInvalidFlags = -60011,
    PXPrivilegedCannotExecute = -60031, ///< No helper, or a task that it does not do.
    PXPrivilegedNoAnswer = -60032,
};
