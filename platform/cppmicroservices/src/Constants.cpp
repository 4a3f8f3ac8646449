#include "cppmicroservices/Constants.h"

namespace cppmicroservices::Constants {

const std::string SYSTEM_BUNDLE_LOCATION = "System Bundle";
const std::string SYSTEM_BUNDLE_SYMBOLICNAME = "system_bundle";
const std::string OBJECTCLASS = "objectclass";
const std::string SERVICE_ID = "service.id";
const std::string SERVICE_RANKING = "service.ranking";
const std::string SERVICE_SCOPE = "service.scope";
const std::string SCOPE_SINGLETON = "singleton";
const std::string SCOPE_BUNDLE = "bundle";
const std::string SCOPE_PROTOTYPE = "prototype";

}  // namespace cppmicroservices::Constants
