// SPDX-License-Identifier: MIT
//
// Binary data streams: typed values to and from any stream buffer.
//
// A stream is in one of two modes, chosen when it is made. In portable mode any peer can read the
// bytes: numbers are big-endian, those with a fraction in the formats of IEEE 754, 16-bit integers
// travel as 32 bits, text is neutral (see mbconv.h). In raw mode values are the host's own bytes
// and text is native. docs/formats.md has both, byte by byte.
//
// Unlike the standard streams, nothing looks at the state before it acts and nothing clears it: a
// stream that has failed goes on at the buffer's current place, and a caller looks at the state
// after a run of operations. Nothing is buffered here either. Each value goes to the stream buffer
// at once, as one transfer where it has a fixed width. The buffer is the caller's and must outlive
// the stream; a stream without one moves nothing and says so in its state.
//
// The types that travel are those of the operators. None is an integer of 64 bits: `long long` does
// not compile. C++ makes an `int`, of 4 bytes, of what it promotes when it is written: `bool`,
// `signed char` and `wchar_t`, which are to be read as an `int`.
//
// A stream serves one thread at a time. No operation throws on its own account, but an exhausted
// heap and what the buffer throws pass through.
#ifndef PLINTH_BDTSTREAM_H
#define PLINTH_BDTSTREAM_H

#include <iosfwd>

#include "outside/zelexport.h"

class dsString;

/// The byte order of the host, probed when the first object is made.
class ZEL_EXPORT bdtBase {
public:
    bdtBase();
    bdtBase(const bdtBase&) = delete;
    bdtBase& operator=(const bdtBase&) = delete;
    virtual ~bdtBase();

    /// 1 if the host's byte order is that of the network, big-endian, else 0. Nothing cached.
    static int IsByteOrderOK();
    /// Reverses 4 or 8 bytes in place, from host order to big-endian or back; does nothing where
    /// the probe found them the same. Before the first object is made there is no probe, and the
    /// bytes are reversed on any host.
    static void Swap4(char* word);
    static void Swap8(char* word); ///< the same for 8 bytes

    /// The bytes that a value takes on the wire; `portable` is the mode. Text is measured in its
    /// native form, whatever the mode: a portable record of text that is not plain can be longer
    /// or shorter. For what has no multibyte form, and is not written, the number means nothing.
    static unsigned int Length(char value, int portable);
    static unsigned int Length(unsigned char value, int portable);  ///< 1
    static unsigned int Length(short value, int portable);          ///< 4, raw 2
    static unsigned int Length(unsigned short value, int portable); ///< 4, raw 2
    static unsigned int Length(int value, int portable);            ///< 4
    static unsigned int Length(unsigned int value, int portable);   ///< 4
    static unsigned int Length(float value, int portable);          ///< 4
    static unsigned int Length(double value, int portable);         ///< 8
    static unsigned int Length(char const* text, int portable);     ///< a prefix of 4 and the text
    static unsigned int Length(wchar_t const* text, int portable);  ///< likewise, and a NUL
    /// A character as `multibyteChars`, if not 0, sends it: a prefix of 4 and the character; else
    /// 4, raw 2.
    static unsigned int Length(wchar_t character, int portable, int multibyteChars);

protected:
    /// Whether host order differs from big-endian, as far as the probe has told.
    static bool HostSwaps() { return __atomic_load_n(&hostIsNetworkOrder, __ATOMIC_RELAXED) == 0; }

    /// Threads that make their first objects at once may all run the probe; they find the same.
    /// Whatever reads or writes the two does so atomically.
    static int byteOrderProbePending;
    static int hostIsNetworkOrder; ///< 1 where the probe found host order big-endian
};

/// The state, the mode and the buffer.
class ZEL_EXPORT bdtStream : public bdtBase {
public:
    /// Failure bits. They accumulate until the stream is destroyed.
    enum State {
        eofbit = 1,  ///< the buffer gave fewer bytes than were asked for; always with failbit
        failbit = 2, ///< a value without conversion, out of range, or cut off
        badbit = 4,  ///< the buffer took fewer bytes than it was offered
    };

    /// `portable` is the mode: 0 is raw, anything else portable.
    bdtStream(std::basic_streambuf<char>* buffer, int portable);
    ~bdtStream() override;

    void setstate(int bits);                                        ///< adds to the failure bits
    int rdstate() const { return state; }                           ///< the failure bits
    bool good() const { return state == 0; }                        ///< no bit is set
    bool eof() const { return (state & eofbit) != 0; }              ///< eofbit is set
    bool fail() const { return (state & (failbit | badbit)) != 0; } ///< failbit or badbit is set
    bool bad() const { return (state & badbit) != 0; }              ///< badbit is set
    explicit operator bool() const { return !fail(); }              ///< nothing has failed

    std::basic_streambuf<char>* rdbuf() const { return buffer; } ///< the buffer; null for none
    /// Sets the buffer and returns the one before. The state stays as it is.
    std::basic_streambuf<char>* rdbuf(std::basic_streambuf<char>* newBuffer);

    /// Whether an `unsigned short` is one wide character, and travels as the character's multibyte
    /// form behind a prefix. Portable mode only; 0, which it is at first, means it does not.
    int multibyte() const { return multibyteChars; }
    void multibyte(int newMultibyteChars) { multibyteChars = newMultibyteChars; } ///< sets that

    /// Moves `count` bytes from or to the buffer and returns how many it moved; any other number
    /// than `count` sets eofbit and failbit, or badbit.
    int sgetn(char* data, int count);
    int sputn(char* data, int count); ///< writes, and leaves `data` as it is

    void Swap4(char* word); ///< as of bdtBase, in either mode
    void Swap8(char* word); ///< likewise

protected:
    /// Portable, without a buffer.
    bdtStream();

    /// Whether the bytes of numbers are reversed on their way.
    bool Swaps() const { return portable != 0 && HostSwaps(); }

    int state;                          ///< the failure bits
    int portable;                       ///< the mode
    int multibyteChars;                 ///< see multibyte()
    std::basic_streambuf<char>* buffer; ///< the caller's
};

/// Reads values. Whatever length a record claims to have, memory is taken as its bytes arrive, at
/// most 64 KiB ahead of them. A value that was cut off leaves its target as it was.
class ZEL_EXPORT bdtIStream : public virtual bdtStream {
public:
    bdtIStream(std::basic_streambuf<char>* buffer, int portable); ///< see bdtStream
    ~bdtIStream() override;

    bdtIStream& operator>>(char& value);          ///< 1 byte
    bdtIStream& operator>>(unsigned char& value); ///< 1 byte
    /// A portable value that needs more than 16 bits leaves its low 16 and sets failbit.
    bdtIStream& operator>>(short& value);
    /// The upper 16 bits of a portable value play no part. A multibyte character that is none, or
    /// that needs more than 16 bits, sets failbit and leaves the target as it was.
    bdtIStream& operator>>(unsigned short& value);
    bdtIStream& operator>>(int& value);          ///< 4 bytes
    bdtIStream& operator>>(unsigned int& value); ///< 4 bytes
    /// 4 bytes, also where a `long` has more.
    bdtIStream& operator>>(long& value);
    bdtIStream& operator>>(unsigned long& value); ///< likewise
    bdtIStream& operator>>(float& value);         ///< 4 bytes
    bdtIStream& operator>>(double& value);        ///< 8 bytes
    /// A text record of either form, up to its first NUL. A null string empties the target. Text
    /// that is cut off or has no native form leaves the target as it was and sets failbit.
    bdtIStream& operator>>(dsString& text);

    /// Reads a byte block: `data` then points to `length` bytes that the caller releases with
    /// `delete[]`. A block that is cut off, or of a negative length, sets failbit and leaves `data`
    /// null and the length it claimed; where not even the length is whole, that stays as it was.
    bdtIStream& Read(char*& data, int& length);

protected:
    bdtIStream();
};

/// Writes values.
class ZEL_EXPORT bdtOStream : public virtual bdtStream {
public:
    bdtOStream(std::basic_streambuf<char>* buffer, int portable); ///< see bdtStream
    ~bdtOStream() override;

    bdtOStream& operator<<(char value);          ///< 1 byte
    bdtOStream& operator<<(unsigned char value); ///< 1 byte
    bdtOStream& operator<<(short value);         ///< 4 bytes, raw 2
    /// A multibyte character that the locale does not know sets failbit and writes nothing.
    bdtOStream& operator<<(unsigned short value);
    bdtOStream& operator<<(int value);          ///< 4 bytes
    bdtOStream& operator<<(unsigned int value); ///< 4 bytes
    /// 4 bytes: a value that does not fit writes its low 32 bits and sets failbit.
    bdtOStream& operator<<(long value);
    bdtOStream& operator<<(unsigned long value); ///< likewise
    bdtOStream& operator<<(float value);         ///< 4 bytes
    bdtOStream& operator<<(double value);        ///< 8 bytes
    /// A text record; null is the null string. Native text that has no neutral form becomes a null
    /// string in portable mode, with no bit set.
    bdtOStream& operator<<(char const* text);
    /// A text record that carries and counts its NUL. Text that has no multibyte form sets failbit
    /// and writes nothing; text that has no neutral form is an empty record, with no bit set.
    bdtOStream& operator<<(wchar_t const* text);
    bdtOStream& operator<<(bdtOStream& (*manipulator)(bdtOStream&)); ///< calls it

    /// Writes a byte block: its length and its bytes, as they are in either mode. `data` is only
    /// read.
    bdtOStream& Write(char* data, int length);

protected:
    bdtOStream();
};

/// Both directions over one buffer, with one state and one mode.
class ZEL_EXPORT bdtIOStream : public bdtIStream, public bdtOStream {
public:
    bdtIOStream(std::basic_streambuf<char>* buffer, bool portable); ///< see bdtStream
    /// Portable, without a buffer.
    bdtIOStream();
    ~bdtIOStream() override;
};

/// Does nothing: a stream holds nothing back. What the stream buffer holds back stays there.
ZEL_EXPORT bdtOStream& flush(bdtOStream& stream);

#endif
