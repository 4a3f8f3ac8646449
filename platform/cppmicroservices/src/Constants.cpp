#include "cppmicroservices/Constants.h"

#include "ConstantNames.hpp"

namespace cppmicroservices::Constants {

const std::string OBJECTCLASS = names::objectClass;
const std::string SERVICE_ID = names::serviceId;
const std::string SERVICE_RANKING = names::serviceRanking;
const std::string SERVICE_SCOPE = names::serviceScope;
const std::string SCOPE_SINGLETON = names::scopeSingleton;
const std::string SCOPE_BUNDLE = names::scopeBundle;
const std::string SCOPE_PROTOTYPE = names::scopePrototype;

}  // namespace cppmicroservices::Constants
