#pragma once
// The framework's TCP socket; all of its behaviour lives in SocketCore.
#include "platform/SocketCore.h"

namespace velmar {

class TCPSocket : public SocketCore {};

}  // namespace velmar
