// Replaces redis/ in a build without hiredis.
#include "standin/transport.h"

namespace standin {

std::shared_ptr<Transport> makeTransport(const TransportSettings& /*settings*/,
                                         // NOLINTNEXTLINE(performance-unnecessary-value-param)
                                         std::function<void(bool)> /*onLink*/) {
  throw Refusal{OX_ERR_INVALIDARGUMENT,
                "server: this build does not support servers; install the package libhiredis-dev "
                "and build again"};
}

}  // namespace standin
