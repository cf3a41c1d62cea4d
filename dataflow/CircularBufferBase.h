// CircularBufferBase: a port's view on a ring of samples.
//
// The ring memory is not owned: the model that wires a connection allocates
// one array and points the writer's and the reader's buffer objects at it.
// Positions are relative to m_iCurrent and wrap with a single subtraction,
// because no offset ever exceeds one ring length.
#pragma once

#include <cstdint>

namespace TesselModelBuilder {

class CircularBufferBase {
public:
    uint64_t m_iRate = 1;               // samples consumed/produced per firing
    uint64_t m_iHistoryDepth = 1;       // past samples a reader needs to see
    bool m_bContiguousBuffer = false;   // port wants one unwrapped run
    uint64_t m_iSizeOf;                 // bytes per element
    uint64_t m_iCurrent = 0;            // element of the present firing
    void* m_pBuffer = nullptr;          // ring memory, m_iSize elements
    uint64_t m_iSize = 0;               // elements in the ring
    bool m_bIsConnected = true;

    explicit CircularBufferBase(uint64_t sizeOf) : m_iSizeOf(sizeOf) {}
    CircularBufferBase(const CircularBufferBase&) = default;
    CircularBufferBase& operator=(const CircularBufferBase&) = default;
    virtual ~CircularBufferBase();

    // Raw copy of count elements, source first; no wrapping.
    virtual void Copy(const void* source, void* destination, uint64_t count) = 0;
    // Ring-to-ring copy relative to both current positions; positions unchanged.
    virtual void Copy(uint64_t sourceOffset, CircularBufferBase* destination,
                      uint64_t destinationOffset, uint64_t count) = 0;
    virtual bool Zero(uint64_t offset, uint64_t count, void* unused) = 0;
    virtual void* AllocateMemory(uint64_t count) = 0;
    // Non-null: free that array only. Null: free this ring and reset it.
    virtual void DeallocateMemory(void* memory) = 0;

    void SetBuffer(void* pBuffer, uint64_t iNumberItems, uint64_t iAdvanceRate,
                   uint64_t iStartLocation) {
        m_pBuffer = pBuffer;
        m_iSize = iNumberItems;
        m_iRate = iAdvanceRate;
        m_iCurrent = iStartLocation;
    }
    void SetRate(uint64_t rate) { m_iRate = rate; }
    uint64_t GetRate() const { return m_iRate; }
    void SetHistoryDepth(uint64_t depth) { m_iHistoryDepth = depth; }
    uint64_t GetHistoryDepth() const { return m_iHistoryDepth; }
    void Initialize() { m_iCurrent = 0; }
    void Advance() {
        m_iCurrent += m_iRate;
        if (m_iCurrent >= m_iSize) m_iCurrent -= m_iSize;
    }
    void SetContiguousProperty(bool contiguous) { m_bContiguousBuffer = contiguous; }
    bool GetContiguousProperty() const { return m_bContiguousBuffer; }

    // Index of the element `offset` places after the current one.
    uint64_t IndexAt(uint64_t offset) const {
        if (offset == 0) return m_iCurrent;
        uint64_t index = m_iCurrent + offset;
        if (index >= m_iSize) index -= m_iSize;
        return index;
    }
    void* GetReadPtr(uint64_t offset = 0) const {
        return static_cast<char*>(m_pBuffer) + IndexAt(offset) * m_iSizeOf;
    }
    void* GetWritePtr(uint64_t offset = 0) const { return GetReadPtr(offset); }
    void Write(const void* element, uint64_t offset = 0) {
        Copy(element, GetWritePtr(offset), 1);
    }
    void* GetPointer() const { return m_pBuffer; }
    void* GetBufferMemory() const { return m_pBuffer; }
    bool IsConnected() const { return m_bIsConnected; }
    void SetConnected(bool connected) { m_bIsConnected = connected; }
    uint64_t GetCurrentIndex() const { return m_iCurrent; }
    uint64_t GetSizeOf() const { return m_iSizeOf; }
    uint64_t GetSize() const { return m_iSize; }
    // Replace the ring by a fresh one of `count` elements owned through this port.
    void ResizeMemory(uint64_t count) {
        DeallocateMemory(nullptr);
        m_pBuffer = AllocateMemory(count);
        m_iSize = count;
        m_iCurrent = 0;
    }
};

}  // namespace TesselModelBuilder
