// CircularBufferBusT<B>: a bus of buffers of type B. Resizing to the present
// count keeps every buffer and its wiring; any other count starts afresh.
#pragma once

#include "dataflow/CircularBuffer.h"
#include "dataflow/CircularBufferBus.h"

namespace TesselModelBuilder {

template <typename B>
class CircularBufferBusT : public CircularBufferBus {
public:
    B* m_pCirBufBus = nullptr;  // owned array of m_iSize buffers

    CircularBufferBusT() = default;

    void Initialize(uint64_t count) override {
        if (count == m_iSize) return;
        // delete[] destroys the buffers from the last to the first.
        delete[] m_pCirBufBus;
        m_pCirBufBus = nullptr;
        m_iSize = count;
        if (count != 0) m_pCirBufBus = new B[count];
    }

    ~CircularBufferBusT() override { delete[] m_pCirBufBus; }

    B* Get(uint64_t index) override { return &m_pCirBufBus[index]; }
};

extern template class CircularBufferBusT<CircularBuffer<double>>;

}  // namespace TesselModelBuilder
