// CircularBufferBus: an owned array of ports for a multi-port connection
// (the outputs of a fork, the inputs of a multiplexer).
#pragma once

#include <cstdint>

#include "dataflow/CircularBufferBase.h"

namespace TesselModelBuilder {

class CircularBufferBus {
public:
    uint64_t m_iSize = 0;  // number of buffers on the bus

    CircularBufferBus() = default;
    CircularBufferBus(const CircularBufferBus&) = delete;
    CircularBufferBus& operator=(const CircularBufferBus&) = delete;

    virtual void Initialize(uint64_t count) = 0;
    virtual ~CircularBufferBus();
    virtual CircularBufferBase* Get(uint64_t index) = 0;
};

}  // namespace TesselModelBuilder
