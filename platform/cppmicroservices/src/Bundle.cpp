#include "cppmicroservices/Bundle.h"

#include <stdexcept>

#include "BundleData.hpp"
#include "FrameworkCore.hpp"
#include "cppmicroservices/BundleContext.h"

namespace cppmicroservices {

Bundle::Bundle() = default;
Bundle::Bundle(std::shared_ptr<detail::FrameworkCore> core, std::shared_ptr<detail::BundleData> data)
    : _core(std::move(core)), _data(std::move(data)) {}
Bundle::~Bundle() = default;
Bundle::Bundle(const Bundle&) = default;
Bundle::Bundle(Bundle&&) noexcept = default;
Bundle& Bundle::operator=(const Bundle&) = default;
Bundle& Bundle::operator=(Bundle&&) noexcept = default;

detail::BundleData& Bundle::data() const {
  if (!_data) {
    throw std::invalid_argument("Expected a bundle, got an empty handle");
  }
  return *_data;
}

bool Bundle::operator<(const Bundle& other) const {
  return _data && (!other._data || data().id() < other.data().id());
}

Bundle::State Bundle::GetState() const {
  return data().state();
}
BundleContext Bundle::GetBundleContext() const {
  return data().context();
}
long Bundle::GetBundleId() const {
  return data().id();
}
std::string Bundle::GetLocation() const {
  return data().location();
}
std::string Bundle::GetSymbolicName() const {
  return data().symbolicName();
}

void Bundle::Start() {
  if (data().isSystem()) {
    _core->start();
  } else {
    _data->start(*this);
  }
}

void Bundle::Stop() {
  if (data().isSystem()) {
    _core->stop();
  } else {
    _data->stop(*this);
  }
}

namespace detail {

struct HandleAccess : Bundle {
  using Bundle::_core;
  using Bundle::_data;
};

const std::shared_ptr<BundleData>& BundleData::of(const Bundle& bundle) {
  return bundle.*(&HandleAccess::_data);
}

const std::shared_ptr<FrameworkCore>& FrameworkCore::of(const Bundle& bundle) {
  return bundle.*(&HandleAccess::_core);
}

}  // namespace detail
}  // namespace cppmicroservices
