#include "platform/iso639.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

namespace ostrel::platform {
namespace {

// ISO 639-1 codes with their ISO 639-2 (terminological) forms.
constexpr std::array<std::pair<std::string_view, std::string_view>, 74> kLanguages = {{
    {"af", "afr"}, {"am", "amh"}, {"ar", "ara"}, {"az", "aze"}, {"be", "bel"}, {"bg", "bul"},
    {"bn", "ben"}, {"bs", "bos"}, {"ca", "cat"}, {"cs", "ces"}, {"cy", "cym"}, {"da", "dan"},
    {"de", "deu"}, {"el", "ell"}, {"en", "eng"}, {"eo", "epo"}, {"es", "spa"}, {"et", "est"},
    {"eu", "eus"}, {"fa", "fas"}, {"fi", "fin"}, {"fr", "fra"}, {"ga", "gle"}, {"gl", "glg"},
    {"gu", "guj"}, {"he", "heb"}, {"hi", "hin"}, {"hr", "hrv"}, {"hu", "hun"}, {"hy", "hye"},
    {"id", "ind"}, {"is", "isl"}, {"it", "ita"}, {"ja", "jpn"}, {"ka", "kat"}, {"kk", "kaz"},
    {"km", "khm"}, {"kn", "kan"}, {"ko", "kor"}, {"ky", "kir"}, {"lo", "lao"}, {"lt", "lit"},
    {"lv", "lav"}, {"mk", "mkd"}, {"ml", "mal"}, {"mn", "mon"}, {"mr", "mar"}, {"ms", "msa"},
    {"mt", "mlt"}, {"my", "mya"}, {"nb", "nob"}, {"ne", "nep"}, {"nl", "nld"}, {"nn", "nno"},
    {"no", "nor"}, {"pa", "pan"}, {"pl", "pol"}, {"pt", "por"}, {"ro", "ron"}, {"ru", "rus"},
    {"si", "sin"}, {"sk", "slk"}, {"sl", "slv"}, {"sq", "sqi"}, {"sr", "srp"}, {"sv", "swe"},
    {"sw", "swa"}, {"ta", "tam"}, {"te", "tel"}, {"th", "tha"}, {"tr", "tur"}, {"uk", "ukr"},
    {"vi", "vie"}, {"zh", "zho"},
}};

}  // namespace

std::string iso639Code(std::string_view language) {
  std::string lower(language);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  for (const auto& [two, three] : kLanguages) {
    if (lower == two || lower == three) return std::string(two);
  }
  return "";
}

}  // namespace ostrel::platform
