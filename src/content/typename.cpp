// The demangled type names of the reference trace.
#include <cxxabi.h>

#include <cstdlib>
#include <map>
#include <mutex>
#include <string>

#include "xmlcontent.h"

const char* NxTypeName(const std::type_info& type) {
  // Demangled once per type; only reached while the reference trace is on,
  // so the lock costs nothing elsewhere. Map nodes never move, so a name
  // handed out stays valid.
  static std::mutex lock;
  static std::map<const std::type_info*, std::string> names;
  std::lock_guard<std::mutex> guard(lock);
  auto it = names.find(&type);
  if (it == names.end()) {
    int status = 0;
    char* demangled = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
    it = names.emplace(&type, status == 0 && demangled ? demangled : type.name()).first;
    std::free(demangled);
  }
  return it->second.c_str();
}
