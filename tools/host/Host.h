// Host: what amihost does once its command line is read: load the model
// library and its .ami file, build the parameter string, make the stimulus
// (a waveform file, or a PRBS through the built-in channel), run one model
// instance per setting, measure the eyes and write the results.
#pragma once

#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace amihost {

// What a campaign keeps of one setting's run once it has ended.
struct PointResult {
    std::string sSetting;           // the swept value; "" for a run without a sweep
    long iInitResult = 0;
    long iGetWaveResult = 0;
    std::string sMessage;           // what AMI_Init said, if anything
    size_t nNonFinite = 0;          // 1 + index of the first NaN or infinite output sample; 0: none
    bool bMeasured = false;         // the eye below was measured
    bool bOpen = false;
    double dHeight = 0.0, dWidthUI = 0.0;
    std::function<void(const std::string& path)> fWriteEye;  // draws the eye diagram (measured runs)
};

struct HostOptions {
    std::string sLibrary;               // model library (.so); "" to take it from sIbsFile
    std::string sAmiFile;               // its .ami file; likewise
    std::string sIbsFile;               // IBIS file naming both, and the termination
    std::string sComponent, sModelName; // its component and model ("" when there is only one)
    std::vector<std::string> vSets;     // NAME=VALUE overrides, in order

    std::string sInput;                 // waveform file; empty: built-in PRBS
    int iPrbs = 7;                      // PRBS order
    size_t nBits = 4000;                // PRBS bits to send
    double dBitRate = 10e9;             // bits per second
    bool bBitRateGiven = false;         // --bit-rate was on the command line
    int iSamplesPerBit = 100;           // samples per UI
    double dAmplitude = 0.5;            // NRZ levels are +/- this, V
    bool bChannel = true;               // pass the PRBS through the built-in channel
    std::string sChannelFile;           // Touchstone channel instead of the built-in one
    std::vector<std::string> vChannelFiles;  // two or more: a campaign over them (Campaign)
    int iShard = 1, nShards = 1;        // --shard K/N: the campaign's K-th of N parts of its points
    bool bResume = false;               // keep the points already done in sOutDir
    std::string sPorts = "13-24";       // its differential pairing (4-port and wider)
    std::vector<std::string> vPorts;    // one pairing per campaign channel, when they differ

    size_t nBlock = 4096;               // samples per AMI_GetWave call
    long iIgnoreBits = -1;              // bits left out of the eye; -1: the .ami's Ignore_Bits, else 100

    bool bSweep = false;                // run every setting of sSweepParam
    std::string sSweepParam = "EQ";
    unsigned nJobs = 0;                 // sweep threads; 0: one per processor

    std::string sOutDir = "amihost-out";
    bool bProgress = true;

    bool bStatEye = false;              // statistical eye of the single or the best setting
    double dNoiseRms = 0.0;             // its Rx noise, V rms
    double dRjRms = 0.0;                // its Rx random jitter, s rms
    bool bDatasheet = false;            // measure every setting of sSweepParam instead of running a pattern

    // Set by a campaign: the settings to run (null: all), and what to do with
    // each as it ends. fDone is called from the run's threads.
    std::function<bool(const std::string& setting)> fWanted;
    std::function<void(const PointResult&)> fDone;
};

class Host {
public:
    // Runs everything, reporting on out; returns the exit code (0, or
    // kInitFailed / kGetWaveFailed after reporting what the model said).
    // Throws HostError for every failure found before or around the model.
    static int Run(HostOptions options, std::ostream& out);

    // One line describing the built-in channel and its loss at the Nyquist
    // frequency of a bit rate.
    static std::string ChannelSummary(double bitRate);
};

}  // namespace amihost
