// Uses each public header.
#include <oxli/base64.h>
#include <oxli/oxjni.h>
#include <oxli/properties.h>
#include <oxli/string_utils.h>

#include <cstdio>

int main() {
  oxutils::Properties settings;
  if (!settings.parse("host=a;port=1")) return 1;
  std::string encoded(oxutils::Base64::encode_len("ok", 2), '\0');
  oxutils::Base64::encode("ok", 2, encoded.data());
  // The environment is closed, so nothing can be wrapped.
  if (oxjni_conn_wrap(nullptr, nullptr)) return 2;
  std::puts(oxutils::StringUtils::format("host=%s, %zu settings, %s", settings.get("host").c_str(),
                                         settings.size(), encoded.c_str())
                .c_str());
}
