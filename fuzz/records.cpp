// SPDX-License-Identifier: MIT
//
// Values read from arbitrary bytes, beside a second reader made after the page of formats. The
// first byte chooses the mode, the next eight the types; what was read whole is written again and
// must be the bytes that it came from, or read the same.
#include "bdtstream.h"

#include <bit>
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "dsstring.h"
#include "fuzz/support/require.h"
#include "mbconv.h"

namespace {

constexpr int shortRead = bdtStream::eofbit | bdtStream::failbit;

/// The second reader.
class Model {
public:
    Model(const std::string& all, bool mode) : bytes(all), portable(mode) {}

    /// The next `count` bytes; false, with all there are taken, if that is fewer.
    bool Take(std::size_t count, std::string& taken) {
        taken = bytes.substr(at, count);
        at += taken.size();
        if (taken.size() < count)
            state |= shortRead;
        return taken.size() == count;
    }
    bool Number(unsigned size, std::uint64_t& number) {
        std::string taken;
        if (!Take(size, taken))
            return false;
        const bool big = portable || std::endian::native == std::endian::big;
        number = 0;
        for (unsigned i = 0; i < size; ++i)
            number |= std::uint64_t{static_cast<unsigned char>(taken[big ? size - 1 - i : i])}
                      << 8 * i;
        return true;
    }
    bool Length(std::int32_t& length) {
        std::uint64_t number;
        if (!Number(4, number))
            return false;
        length = static_cast<std::int32_t>(number);
        return true;
    }

    const std::string bytes;
    const bool portable;
    std::size_t at = 0;
    int state = 0;
};

/// Reads a number from both. The target of a value that was cut off is as it was.
template <typename T>
void CheckNumber(bdtIOStream& in, Model& model, unsigned size) {
    T value = 7;
    in >> value;
    std::uint64_t number;
    if (!model.Number(size, number)) {
        Require(value == 7);
        return;
    }
    if constexpr (std::is_same_v<T, float>) {
        Require(std::bit_cast<std::uint32_t>(value) == number);
    } else if constexpr (std::is_same_v<T, double>) {
        Require(std::bit_cast<std::uint64_t>(value) == number);
    } else if constexpr (std::is_same_v<T, long>) {
        Require(value == static_cast<std::int32_t>(number));
    } else {
        Require(value == static_cast<T>(number));
        if constexpr (std::is_same_v<T, short>)
            if (size == 4 && value != static_cast<std::int32_t>(number))
                model.state |= bdtStream::failbit;
    }
    std::stringbuf buffer;
    bdtOStream out(&buffer, model.portable);
    out << value;
    std::string written = model.bytes.substr(model.at - size, size);
    if (sizeof(T) == 2 && size == 4) // the upper half says nothing, or what does not fit
        Require(buffer.str().substr(2) == written.substr(2));
    else
        Require(buffer.str() == written);
    Require(out.good());
}

/// What the native text of a record is: neutral text that has been read and written once, or the
/// bytes themselves where the locale knows them.
bool NativeText(const std::string& record, bool portable, std::string& native) {
    const char* const text = record.c_str();
    if (portable) {
        char* converted = mbxNeutToNative(text);
        if (converted != nullptr)
            native = converted;
        operator delete(converted);
        return converted != nullptr;
    }
    if (std::mbstowcs(nullptr, text, 0) == static_cast<std::size_t>(-1))
        return false;
    native = text;
    return true;
}

void CheckText(bdtIOStream& in, Model& model) {
    dsString text("before");
    in >> text;
    std::string wanted = "before", record;
    std::int32_t length;
    if (model.Length(length)) {
        if (length < 0)
            wanted = "";
        else if (model.Take(static_cast<std::size_t>(length), record))
            if (!NativeText(record, model.portable, wanted))
                model.state |= bdtStream::failbit;
    }
    Require(wanted == static_cast<const char*>(text));

    std::stringbuf buffer;
    bdtIOStream again(&buffer, model.portable);
    std::vector<wchar_t> wide(wanted.size() + 1);
    std::mbstowcs(wide.data(), text, wide.size());
    dsString narrowBack, wideBack;
    again << static_cast<const char*>(text) << wide.data();
    again >> narrowBack >> wideBack;
    Require(wanted == static_cast<const char*>(narrowBack));
    Require(wanted == static_cast<const char*>(wideBack));
    Require(again.good() && buffer.in_avail() == 0);
}

void CheckBlock(bdtIOStream& in, Model& model) {
    char here = 0, *data = &here;
    int length = -7;
    in.Read(data, length);
    const std::unique_ptr<char[]> owned(data);
    std::int32_t wanted = -7;
    std::string block;
    bool whole = false;
    if (model.Length(wanted)) {
        if (wanted < 0)
            model.state |= bdtStream::failbit;
        else
            whole = model.Take(static_cast<std::size_t>(wanted), block);
    }
    Require(length == wanted && (data != nullptr) == whole);
    Require(!whole || std::memcmp(data, block.data(), block.size()) == 0);
}

void CheckCharacter(bdtIOStream& in, Model& model) {
    unsigned short value = 7;
    in.multibyte(1);
    in >> value;
    in.multibyte(0);
    std::int32_t length;
    std::string form;
    if (!model.Length(length) ||
        (length > 0 && !model.Take(static_cast<std::size_t>(length), form))) {
        Require(value == 7);
        return;
    }
    wchar_t wide = 0;
    const int used = length > 0 ? std::mbtowc(&wide, form.data(), form.size()) : -1;
    std::mbtowc(nullptr, nullptr, 0);
    const bool good =
        length > 0 && wide <= 0xFFFF && (used == length || (used == 0 && length == 1));
    if (!good)
        model.state |= bdtStream::failbit;
    Require(value == (good ? wide : 7));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 9)
        return 0;
    std::setlocale(LC_ALL, (data[0] & 2) != 0 ? "C" : "C.UTF-8");
    Model model(std::string(data + 9, data + size), (data[0] & 1) != 0);
    std::stringbuf buffer(model.bytes);
    bdtIOStream in(&buffer, model.portable);
    const unsigned half = model.portable ? 4 : 2;
    for (int i = 1; i < 9; ++i) {
        switch (data[i] % 13) {
        case 0:
            CheckNumber<char>(in, model, 1);
            break;
        case 1:
            CheckNumber<unsigned char>(in, model, 1);
            break;
        case 2:
            CheckNumber<short>(in, model, half);
            break;
        case 3:
            CheckNumber<unsigned short>(in, model, half);
            break;
        case 4:
            CheckNumber<int>(in, model, 4);
            break;
        case 5:
            CheckNumber<unsigned int>(in, model, 4);
            break;
        case 6:
            CheckNumber<long>(in, model, 4);
            break;
        case 7:
            CheckNumber<unsigned long>(in, model, 4);
            break;
        case 8:
            CheckNumber<float>(in, model, 4);
            break;
        case 9:
            CheckNumber<double>(in, model, 8);
            break;
        case 10:
            CheckText(in, model);
            break;
        case 11:
            CheckBlock(in, model);
            break;
        default:
            if (model.portable)
                CheckCharacter(in, model);
        }
        Require(in.rdstate() == model.state);
    }
    return 0;
}
