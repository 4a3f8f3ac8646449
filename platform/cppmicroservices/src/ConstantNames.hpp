#pragma once

/// The texts of Constants.h, and the system bundle's, for the framework's own use, which may go on while the
/// process ends and the constants are destroyed.
namespace cppmicroservices::names {

inline constexpr char systemBundleLocation[] = "System Bundle";
inline constexpr char systemBundleSymbolicName[] = "system_bundle";
inline constexpr char objectClass[] = "objectclass";
inline constexpr char serviceId[] = "service.id";
inline constexpr char serviceRanking[] = "service.ranking";
inline constexpr char serviceScope[] = "service.scope";
inline constexpr char scopeSingleton[] = "singleton";
inline constexpr char scopeBundle[] = "bundle";
inline constexpr char scopePrototype[] = "prototype";

}  // namespace cppmicroservices::names
