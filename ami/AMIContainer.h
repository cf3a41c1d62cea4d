// AMIContainer: one model instance, held by the simulator through the memory
// handle from AMI_Init to AMI_Close.
#pragma once

#include <string>
#include <vector>

#include "model/KV2_RX.h"

struct AMIContainer {
    TesselModelBuilder::KV2_RX cTesselModel;  // the receiver (first member)
    std::string sMessage;                     // text for the simulator; only appended to
    std::vector<double> vClockTimes;          // clock-time scratch, wave_size + 1 entries
    int iSamplesPerBit = 0;                   // from bit_time / sample_interval
    // Messages after AMI_Init. Kept apart from sMessage so the text AMI_Init
    // handed out stays valid and unchanged until AMI_Close.
    std::string sLaterMessages;
};
