// filterParts.h - decoder, encoder and converter of a graph.
#pragma once

#include "apps/kiv/graph/graphPart.h"
#include "convert/kivICjdecoder.h"
#include "convert/kivICjencoder.h"

// A converter node that keeps what was said of a frame that it could not convert or take.
template <class Base> class WatchedIC : public Base {
public:
    int receive(ZVbuffer inBuffer) override;
    int handleEvents(fd_set readySet) override;
    std::string wrong;  // of the last failed frame
    std::string refused;  // of the last frame that the converter did not take
};

class ConverterPart : public GraphPart {
public:
    using GraphPart::GraphPart;
    bool idle() override;
    void afterPass(RunContext& run) override;
    Counters counters() override;
    long long dropped() override;
    long long waiting() override { return zvICGetSrcQueueFilled(converter().imgConvCtx); }
    long long workNs() override { return stats().cpuNs; }

protected:
    virtual kivIC& converter() = 0;
    virtual const std::string& wrong() = 0;
    virtual const std::string& refused() = 0;
    // Opens the converter for these two formats. Throws GraphError.
    PictureFormat setUp(const PictureFormat& in, PictureFormat out);

private:
    ZVicStats stats();
    bool failureSaid_ = false;
};

class DecoderPart : public ConverterPart {
public:
    using ConverterPart::ConverterPart;
    kivObj& node() override { return decoder_; }
    PictureFormat configure(const PictureFormat& in, const Below& below) override;

protected:
    kivIC& converter() override { return decoder_; }
    const std::string& wrong() override { return decoder_.wrong; }
    const std::string& refused() override { return decoder_.refused; }

private:
    WatchedIC<kivICjdecoder> decoder_;
};

class EncoderPart : public ConverterPart {
public:
    using ConverterPart::ConverterPart;
    kivObj& node() override { return encoder_; }
    PictureFormat configure(const PictureFormat& in, const Below& below) override;

protected:
    kivIC& converter() override { return encoder_; }
    const std::string& wrong() override { return encoder_.wrong; }
    const std::string& refused() override { return encoder_.refused; }

private:
    WatchedIC<kivICjencoder> encoder_;
};

class ConvertPart : public ConverterPart {
public:
    using ConverterPart::ConverterPart;
    kivObj& node() override { return converter_; }
    PictureFormat configure(const PictureFormat& in, const Below& below) override;

protected:
    kivIC& converter() override { return converter_; }
    const std::string& wrong() override { return converter_.wrong; }
    const std::string& refused() override { return converter_.refused; }

private:
    void sayRange(bool fullRange);

    WatchedIC<kivIC> converter_;
};
