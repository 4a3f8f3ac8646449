#include "cppmicroservices/ServiceInterface.h"

#include <cxxabi.h>

#include <cstdlib>

namespace cppmicroservices::detail {

const std::string& factoryKey = *new const std::string("org.cppmicroservices.factory");

std::string demangledName(const std::type_info& type) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> name(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
  return status == 0 ? name.get() : type.name();
}

}  // namespace cppmicroservices::detail
