#include "transport/transports.h"

namespace host::io {

constinit std::atomic<std::unique_ptr<Transports> (*)(boost::asio::io_context&)> makeTransports{nullptr};

} // namespace host::io
