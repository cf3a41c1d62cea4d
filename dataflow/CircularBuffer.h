// CircularBuffer<T>: the typed ring port (double for signals, int for control
// lines). Copies move whole chunks between the wrap points of both rings.
#pragma once

#include <algorithm>
#include <cstring>

#include "dataflow/CircularBufferBase.h"

namespace TesselModelBuilder {

template <typename T>
class CircularBuffer : public CircularBufferBase {
public:
    CircularBuffer() : CircularBufferBase(sizeof(T)) {}
    // The ring memory belongs to whoever wired it; never freed here.
    ~CircularBuffer() override {}

    void Copy(const void* source, void* destination, uint64_t count) override {
        std::memcpy(destination, source, count * sizeof(T));
    }

    void Copy(uint64_t sourceOffset, CircularBufferBase* destination,
              uint64_t destinationOffset, uint64_t count) override {
        T* src = static_cast<T*>(m_pBuffer);
        T* dst = static_cast<T*>(destination->m_pBuffer);
        uint64_t s = IndexAt(sourceOffset);
        uint64_t d = destination->IndexAt(destinationOffset);
        if (count == 1) {
            dst[d] = src[s];
            return;
        }
        while (count > 0) {
            uint64_t chunk = std::min({m_iSize - s, destination->m_iSize - d, count});
            std::memcpy(dst + d, src + s, chunk * sizeof(T));
            s += chunk;
            if (s == m_iSize) s = 0;
            d += chunk;
            if (d == destination->m_iSize) d = 0;
            count -= chunk;
        }
    }

    bool Zero(uint64_t offset, uint64_t count, void*) override {
        T* data = static_cast<T*>(m_pBuffer);
        for (uint64_t i = offset; i < offset + count; ++i) data[IndexAt(i)] = T(0);
        return true;
    }

    void* AllocateMemory(uint64_t count) override { return new T[count]; }

    void DeallocateMemory(void* memory) override {
        if (memory != nullptr) {
            delete[] static_cast<T*>(memory);
            return;
        }
        delete[] static_cast<T*>(m_pBuffer);
        m_pBuffer = nullptr;
        m_iCurrent = 0;
        m_iSize = 0;
    }

    // Element `offset` places after the current position.
    T& operator[](uint64_t offset) { return static_cast<T*>(m_pBuffer)[IndexAt(offset)]; }
    const T& operator[](uint64_t offset) const {
        return static_cast<const T*>(m_pBuffer)[IndexAt(offset)];
    }
};

extern template class CircularBuffer<double>;
extern template class CircularBuffer<int>;

}  // namespace TesselModelBuilder
