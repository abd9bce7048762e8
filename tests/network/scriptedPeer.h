// scriptedPeer.h - a connection whose peer sends exactly what the test says.
#pragma once

#include <deque>
#include <mutex>
#include <string>

#include "platform/wisp/wispData.h"

enum class At { nowhere, header, size, data };  // a step of reading one message

struct PeerMessage {
    int headerVal = 0;
    long long ust = 0, msc = 0;
    std::string bytes;
    int size = -2;  // what getSize says; -2: the size of `bytes`
    At fail = At::nowhere;  // this step answers -1
    At silent = At::nowhere;  // this step waits until the reader is asked to end, or for `resume`
};

// Reads from the test's messages, records what is sent.
class ScriptedPeer : public wispData {
public:
    ScriptedPeer();
    ~ScriptedPeer() override;

    int setHeaderSize(int bytes) override;
    int getFD(int* fd) override;
    int getHeader(void* header) override;
    int getSize(int* size) override;
    int getData(void* data) override;
    int sendData(void* header, void* data, int size) override;

    void say(PeerMessage message);  // any thread
    void say(const std::string& bytes, long long msc = 0);
    void resume();  // ends one silence
    bool untilSilent();  // waits until the reader stands in a silence, up to ten seconds

    int headerSize = 0;
    int descriptorResult = 0;  // of getFD
    int sendResult = 0;
    std::string sentHeader, sentData;
    int sent = 0;

private:
    int step(At at);

    int arrived_;  // counts messages that wait
    int silence_;  // becomes readable when a silence ends
    int entered_;  // counts silences
    std::mutex mutex_;
    std::deque<PeerMessage> messages_;
    PeerMessage current_;
};
