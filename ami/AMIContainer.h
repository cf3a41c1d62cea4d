// AMIContainer: one model instance, held by the simulator through the memory
// handle from AMI_Init to AMI_Close.
#pragma once

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
};
