#pragma once

// A range of a clip's samples, in point to out point: what the clip shows. **Units:** sample numbers.
// What lies before the in point is precharge, what lies at or past the out point is rollout.
class MediaEditDesc {
public:
    MediaEditDesc() = default;
    MediaEditDesc(unsigned long long in, unsigned long long out) : m_in(in), m_out(out) {}

    unsigned long long getIn() const { return m_in; }
    unsigned long long getOut() const { return m_out; }

    // Precharge and the in point are one number: the out point stays where it is.
    void setPrecharge(unsigned long long samples) { m_in = samples; }
    void increaseOut(unsigned long long samples) { m_out += samples; }
    void setLength(unsigned long long samples) { m_out = m_in + samples; }

    // Samples shown; 0 when the in point lies above the out point.
    unsigned long long getLength() const { return m_out > m_in ? m_out - m_in : 0; }
    unsigned long long numSamples() const { return getLength(); }

private:
    unsigned long long m_in = 0;
    unsigned long long m_out = 0;
};
