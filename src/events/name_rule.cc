#include "events/name_rule.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>
#include <utf8proc.h>

#include <memory>
#include <string_view>

#include "events/grapheme.h"
#include "platform/fatal.h"
#include "transport/ol_connector.h"

namespace ostrel {
namespace {

class Pattern {
 public:
  Pattern(std::string_view pattern, uint32_t options, uint32_t newline = PCRE2_NEWLINE_LF) {
    std::unique_ptr<pcre2_compile_context, decltype(&pcre2_compile_context_free)> context(
        pcre2_compile_context_create(nullptr), pcre2_compile_context_free);
    pcre2_set_newline(context.get(), newline);
    int error = 0;
    PCRE2_SIZE offset = 0;
    code_ = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                          options | PCRE2_UTF | PCRE2_UCP, &error, &offset, context.get());
    // The patterns are constants: one that does not compile is a programming error.
    if (code_ == nullptr) fatal("Cannot compile pattern " + std::string(pattern));
    pcre2_jit_compile(code_, PCRE2_JIT_COMPLETE);
  }
  ~Pattern() { pcre2_code_free(code_); }

  bool matches(std::string_view subject) const {
    thread_local std::unique_ptr<pcre2_match_data, decltype(&pcre2_match_data_free)> data(
        pcre2_match_data_create(4, nullptr), pcre2_match_data_free);
    // The subject is valid UTF-8 here; invalid text is refused before matching.
    int rc = pcre2_match(code_, reinterpret_cast<PCRE2_SPTR>(subject.data()), subject.size(), 0, 0,
                         data.get(), nullptr);
    return rc >= 0;
  }

 private:
  pcre2_code* code_ = nullptr;
};

// The prefix of the text that spans `units` UTF-16 code units (never half a character).
std::string_view utf16Prefix(std::string_view text, std::size_t units) {
  auto* p = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  auto left = static_cast<utf8proc_ssize_t>(text.size());
  std::size_t offset = 0, used = 0;
  while (left > 0) {
    utf8proc_int32_t cp;
    utf8proc_ssize_t n = utf8proc_iterate(p + offset, left, &cp);
    if (n <= 0) break;
    std::size_t width = cp >= 0x10000 ? 2 : 1;
    if (used + width > units) break;
    used += width;
    offset += static_cast<std::size_t>(n);
    left -= n;
  }
  return text.substr(0, offset);
}

// "^[\w-]{1,32}$" as a Unicode-aware platform engine (ICU, behind the phones'
// regular expressions) reads it. Its \w is the word class of Unicode's regular
// expression guidelines (UTS #18): alphabetic characters, combining marks,
// decimal digits, connector punctuation and the two joiners, where PCRE2's own
// \w leaves out the marks and joiners (NFD accents, most Indic vowel signs).
// Its lines end at every Unicode line break, CR, LF, CRLF, VT, FF, NEL, U+2028
// and U+2029: exactly PCRE2's newline convention ANY (ANYCRLF would miss the
// last five).
constexpr std::string_view kNamePattern =
    "^[\\p{Alphabetic}\\p{M}\\p{Nd}\\p{Pc}\\x{200C}\\x{200D}-]{1,32}$";

}  // namespace

bool matchesEventNameRule(const std::string& name) {
  static const auto* pattern = new Pattern(kNamePattern, PCRE2_MULTILINE, PCRE2_NEWLINE_ANY);
  if (!isValidUtf8(name)) return false;
  return pattern->matches(utf16Prefix(name, graphemeCount(name)));
}

bool matchesAttachedUserRule(const std::string& userId) {
  static const auto* pattern = new Pattern("^[CAOUE]_\\S+$", 0);
  if (!isValidUtf8(userId)) return false;
  return pattern->matches(userId);
}

}  // namespace ostrel
