// AMIContainer: one model instance, held by the simulator through the memory
// handle from AMI_Init to AMI_Close.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "blocks/SimdLevel.h"
#include "model/KV2_RX.h"

struct AMIContainer {
    TesselModelBuilder::KV2_RX cTesselModel;  // the receiver (first member)
    std::string sMessage;                     // text for the simulator; only appended to
    std::vector<double> vClockTimes;          // clock-time scratch (only its first entry is used)
    int iSamplesPerBit = 0;                   // from bit_time / sample_interval

    // Messages after AMI_Init. Kept apart from sMessage so the text AMI_Init
    // handed out stays valid and unchanged until AMI_Close.
    std::string sLaterMessages;
    // Set when AMI_Init succeeded with an equalizer setting in range: the
    // waveform then takes the block path.
    bool bBlockPath = false;
    TesselModelBuilder::SimdLevel eSimdLevel = TesselModelBuilder::DetectSimdLevel();
    // Tells a live instance from memory that is not one (a wrong pointer
    // handed back by the host); cleared when the instance is closed.
    uint64_t uCookie = kLiveCookie;

    static constexpr uint64_t kLiveCookie = 0x4b5632525841ULL;  // "KV2RXA"

    // The instance behind a handle, or null when the handle is null,
    // misaligned or does not carry the live cookie.
    static AMIContainer* FromHandle(void* handle) {
        if (handle == nullptr || reinterpret_cast<uintptr_t>(handle) % alignof(AMIContainer) != 0)
            return nullptr;
        AMIContainer* c = static_cast<AMIContainer*>(handle);
        return c->uCookie == kLiveCookie ? c : nullptr;
    }
};
