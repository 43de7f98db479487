#include "send/code_page.h"

#include <iconv.h>
#include <langinfo.h>

#include <array>
#include <clocale>
#include <cstdint>
#include <cstring>

#include "state/settings.h"
#include "wire/wire_format.h"

namespace {

/// An open conversion; not valid() if the system can't convert between the two sets.
class Converter {
 public:
  Converter(const char* to, const char* from) : cd_(iconv_open(to, from)) {}
  ~Converter() {
    if (valid()) iconv_close(cd_);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  bool valid() const { return reinterpret_cast<std::intptr_t>(cd_) != -1; }  // iconv_open(3)
  iconv_t get() const { return cd_; }

 private:
  iconv_t cd_;
};

}  // namespace

void get_lcs() {
  std::setlocale(LC_ALL, "");
  settings.lcs = nl_langinfo(CODESET);
}

bool convert(const std::string& src, std::string& dst, const char* code, bool to_local) {
  if (!settings.lcs) return false;
  std::string text = src.c_str();  // up to the first NUL
  if (*settings.lcs == code) {
    dst = text;
    return true;
  }
  const char* local = settings.lcs->c_str();
  const Converter converter(to_local ? local : code, to_local ? code : local);
  if (!converter.valid()) return false;

  std::array<char, 8192> work{};
  char* in = text.data();
  std::size_t in_left = text.size();
  char* out = work.data();
  std::size_t out_left = work.size() - 1;  // leaves room for a terminator
  const std::size_t result = iconv(converter.get(), &in, &in_left, &out, &out_left);
  dst = work.data();
  return result != static_cast<std::size_t>(-1);
}

std::string fname_to_send(const std::string& name, bool& cut) {
  const std::string whole = name.c_str();
  std::string converted = whole;  // the result if nothing can be converted
  cut = !convert(whole, converted, SND_CP, false) && converted != whole;
  return converted;
}
