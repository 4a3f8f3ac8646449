#pragma once

#include <kestrel/datastreaming/Stream.hpp>
#include <memory>
#include <utility>

#include "transports/Transport.hpp"

namespace kestrel::streams {

/// A stream as the service hands it out, with the link that makes its ends.
class StreamImpl final : public datastreaming::Stream {
 public:
  StreamImpl(std::shared_ptr<const StreamContext> context, std::shared_ptr<StreamLink> link)
      : _context(std::move(context)), _link(std::move(link)) {}

  [[nodiscard]] std::string id() const override { return _context->id; }
  [[nodiscard]] StreamLink& link() const { return *_link; }

 private:
  const std::shared_ptr<const StreamContext> _context;
  const std::shared_ptr<StreamLink> _link;
};

}  // namespace kestrel::streams
