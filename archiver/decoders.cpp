// Libraries do the work; all but Zstandard's have the interface that zlib has, so that one loop serves them: input is
// handed over as it comes, output taken whenever the buffer has some, until the library has seen the end. What is
// missing or left over then is damage.

#include "archiver/decoders.h"

#include <zlib.h>
#ifdef FOLIDEX_BZIP2
#include <bzlib.h>
#endif
#ifdef FOLIDEX_LZMA
#include <lzma.h>
#endif
#ifdef FOLIDEX_ZSTD
#include <zstd.h>
#endif

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <utility>

namespace archiver {

namespace {

using zip::Method;

[[noreturn]] void failDamaged()
{
    throw UndecodableContent{};
}

[[maybe_unused]] [[noreturn]] void failGreedy()
{
    throw UndecodableContent{Exit::unsupported, "asks for too much memory"};
}

// A byte more than announced has room, so that it is seen.
class Buffer {
public:
    explicit Buffer(std::uint64_t announced)
        : size_(static_cast<std::size_t>(std::min<std::uint64_t>(announced, largest - 1)) + 1),
          bytes_(std::make_unique_for_overwrite<std::byte[]>(size_))
    {
    }

    std::byte* data() { return bytes_.get(); }
    std::size_t size() const { return size_; }

private:
    static constexpr std::size_t largest = std::size_t{256} << 10U;

    std::size_t size_;
    std::unique_ptr<std::byte[]> bytes_;
};

enum class Step { goesOn, atEnd };

// What a library returned.
Step judged(bool isAtEnd, bool goesOn, bool lacksMemory)
{
    if (lacksMemory) {
        throw std::bad_alloc();
    }
    if (!isAtEnd && !goesOn) {
        failDamaged();
    }
    return isAtEnd ? Step::atEnd : Step::goesOn;
}

// `step`: decodes what it can; told whether the input has ended.
template <typename Stream, typename DecodeSome>
void run(Stream& stream, const Encoding& encoding, const NextPiece& next, const TakePiece& take,
         DecodeSome&& decodeSome)
{
    Buffer buffer(encoding.size);
    bool inputEnded = false;
    Step step = Step::goesOn;
    while (step == Step::goesOn) {
        if (stream.avail_in == 0 && !inputEnded) {
            const std::span<const std::byte> piece = next();
            inputEnded = piece.empty();
            stream.next_in = reinterpret_cast<decltype(stream.next_in)>(const_cast<std::byte*>(piece.data()));
            stream.avail_in = static_cast<decltype(stream.avail_in)>(piece.size());
        }
        stream.next_out = reinterpret_cast<decltype(stream.next_out)>(buffer.data());
        stream.avail_out = static_cast<decltype(stream.avail_out)>(buffer.size());
        step = decodeSome(inputEnded);
        const std::size_t made = buffer.size() - stream.avail_out;
        if (made > 0) {
            take({buffer.data(), made});
        } else if (inputEnded && step == Step::goesOn) {
            failDamaged();
        }
    }
    if (stream.avail_in > 0 || !next().empty()) {
        failDamaged();
    }
}

void decodeDeflate(const Encoding& encoding, const NextPiece& next, const TakePiece& take)
{
    z_stream stream{};
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) {
        throw std::bad_alloc();
    }
    const std::unique_ptr<z_stream, decltype(&inflateEnd)> closing(&stream, inflateEnd);
    run(stream, encoding, next, take, [&](bool) {
        const int result = inflate(&stream, Z_NO_FLUSH);
        return judged(result == Z_STREAM_END, result == Z_OK || result == Z_BUF_ERROR, result == Z_MEM_ERROR);
    });
}

#ifdef FOLIDEX_BZIP2
void decodeBzip2(const Encoding& encoding, const NextPiece& next, const TakePiece& take)
{
    bz_stream stream{};
    if (BZ2_bzDecompressInit(&stream, 0, 0) != BZ_OK) {
        throw std::bad_alloc();
    }
    const std::unique_ptr<bz_stream, decltype(&BZ2_bzDecompressEnd)> closing(&stream, BZ2_bzDecompressEnd);
    run(stream, encoding, next, take, [&](bool) {
        const int result = BZ2_bzDecompress(&stream);
        return judged(result == BZ_STREAM_END, result == BZ_OK, result == BZ_MEM_ERROR);
    });
}
#endif

#ifdef FOLIDEX_LZMA
constexpr std::uint64_t mostMemory = std::uint64_t{1} << 30U;

void runLzma(lzma_stream& stream, const Encoding& encoding, const NextPiece& next, const TakePiece& take)
{
    run(stream, encoding, next, take, [&](bool inputEnded) {
        const lzma_ret result = lzma_code(&stream, inputEnded ? LZMA_FINISH : LZMA_RUN);
        if (result == LZMA_MEMLIMIT_ERROR) {
            failGreedy();
        }
        return judged(result == LZMA_STREAM_END, result == LZMA_OK || result == LZMA_BUF_ERROR,
                      result == LZMA_MEM_ERROR);
    });
}

void decodeXz(const Encoding& encoding, const NextPiece& next, const TakePiece& take)
{
    lzma_stream stream = LZMA_STREAM_INIT;
    if (lzma_stream_decoder(&stream, mostMemory, 0) != LZMA_OK) {
        throw std::bad_alloc();
    }
    const std::unique_ptr<lzma_stream, decltype(&lzma_end)> closing(&stream, lzma_end);
    runLzma(stream, encoding, next, take);
}

// In a zip, version and length come before the properties (APPNOTE.TXT 5.8.8). The decoder is for files of the kind
// .lzma, where the properties are followed by the size.
void decodeLzma(const Encoding& encoding, const NextPiece& next, const TakePiece& take)
{
    constexpr std::size_t propertiesAt = 4, propertiesLength = 5, dictionaryAt = 1;
    std::array<std::byte, propertiesAt + propertiesLength> head{};
    std::span<const std::byte> rest;
    for (std::byte& byte : head) {
        rest = rest.empty() ? next() : rest;
        if (rest.empty()) {
            failDamaged();
        }
        byte = rest.front();
        rest = rest.subspan(1);
    }
    if (zip::get16(head, 2) != propertiesLength) {
        failDamaged();
    }
    std::array<std::byte, propertiesLength + sizeof(std::uint64_t)> start{};
    std::copy_n(head.begin() + propertiesAt, propertiesLength, start.begin());
    // No match reaches further back than to the start.
    constexpr std::uint64_t smallestDictionary = 4096;
    const std::uint64_t wanted = std::max(encoding.size, smallestDictionary);
    if (zip::get32(start, dictionaryAt) > wanted) {
        zip::put(std::span(start), dictionaryAt, static_cast<std::uint32_t>(wanted));
    }
    zip::put(std::span(start), propertiesLength, encoding.hasEndMarker ? ~std::uint64_t{0} : encoding.size);

    lzma_stream stream = LZMA_STREAM_INIT;
    if (lzma_alone_decoder(&stream, mostMemory) != LZMA_OK) {
        throw std::bad_alloc();
    }
    const std::unique_ptr<lzma_stream, decltype(&lzma_end)> closing(&stream, lzma_end);
    std::array<std::span<const std::byte>, 2> ahead{start, rest};
    const auto nextWithHead = [&]() -> std::span<const std::byte> {
        for (std::span<const std::byte>& piece : ahead) {
            if (!piece.empty()) {
                return std::exchange(piece, {});
            }
        }
        return next();
    };
    runLzma(stream, encoding, nextWithHead, take);
}
#endif

#ifdef FOLIDEX_ZSTD
void decodeZstandard(const Encoding& encoding, const NextPiece& next, const TakePiece& take)
{
    const std::unique_ptr<ZSTD_DStream, decltype(&ZSTD_freeDStream)> stream(ZSTD_createDStream(), ZSTD_freeDStream);
    if (!stream) {
        throw std::bad_alloc();
    }
    Buffer buffer(encoding.size);
    std::size_t missing = 1; // 0 between frames
    for (std::span<const std::byte> piece = next(); !piece.empty(); piece = next()) {
        ZSTD_inBuffer input{piece.data(), piece.size(), 0};
        ZSTD_outBuffer output{};
        do {
            output = {buffer.data(), buffer.size(), 0};
            missing = ZSTD_decompressStream(stream.get(), &output, &input);
            if (ZSTD_isError(missing) != 0) {
                // The window's size is limited to 128 MiB. (The list of error codes isn't in every version's headers.)
                std::string(ZSTD_getErrorName(missing)).find("memory") != std::string::npos ? failGreedy()
                                                                                            : failDamaged();
            }
            take({buffer.data(), output.pos});
        } while (input.pos < input.size || (output.pos == output.size && missing != 0));
    }
    if (missing != 0) {
        failDamaged();
    }
}
#endif

void store(const Encoding&, const NextPiece& next, const TakePiece& take)
{
    for (std::span<const std::byte> piece = next(); !piece.empty(); piece = next()) {
        take(piece);
    }
}

// APPNOTE.TXT 4.4.5.
const char* nameOf(unsigned method)
{
    constexpr std::pair<unsigned, const char*> names[] = {
        {1, "Shrink"}, {2, "Reduce"},     {3, "Reduce"}, {4, "Reduce"}, {5, "Reduce"}, {6, "Implode"},  {12, "BZip2"},
        {14, "LZMA"},  {93, "Zstandard"}, {94, "MP3"},   {95, "XZ"},    {96, "JPEG"},  {97, "WavPack"}, {98, "PPMd"},
    };
    const auto* const found =
        std::find_if(std::begin(names), std::end(names), [method](const auto& name) { return name.first == method; });
    return found != std::end(names) ? found->second : "unknown";
}

using Decoder = void (*)(const Encoding&, const NextPiece&, const TakePiece&);

Decoder decoderOf(Method method)
{
    switch (method) {
    case Method::store:
        return store;
    case Method::deflate:
        return decodeDeflate;
    case Method::deflate64:
        return decodeDeflate64;
#ifdef FOLIDEX_BZIP2
    case Method::bzip2:
        return decodeBzip2;
#endif
#ifdef FOLIDEX_LZMA
    case Method::lzma:
        return decodeLzma;
    case Method::xz:
        return decodeXz;
#endif
#ifdef FOLIDEX_ZSTD
    case Method::zstandard:
        return decodeZstandard;
#endif
    default:
        return nullptr;
    }
}

} // namespace

void requireDecoder(Method method, const std::string& name)
{
    if (decoderOf(method) == nullptr) {
        const auto number = static_cast<unsigned>(method);
        fail(Exit::unsupported, name + " is compressed by method " + std::to_string(number) + " (" + nameOf(number) +
                                    "), which isn't supported");
    }
}

void decode(const Encoding& encoding, const NextPiece& next, const TakePiece& take)
{
    decoderOf(encoding.method)(encoding, next, take);
}

} // namespace archiver
