// SPDX-License-Identifier: MIT
#include "pipestream.h"

#include <memory>

#include "outside/win32/handles.h"

namespace {

/// An end that nobody has taken over yet.
class OpenEnd {
public:
    explicit OpenEnd(void* end) : handle(end) {}
    OpenEnd(const OpenEnd&) = delete;
    OpenEnd& operator=(const OpenEnd&) = delete;
    ~OpenEnd() { CloseHandle(handle); }
    void Release() { handle = zelHandleOfDescriptor(-1); }

private:
    void* handle;
};

struct PipeDeleter {
    template <typename Stream>
    void operator()(Stream* stream) const {
        DeletePipe(stream);
    }
};

} // namespace

iPipeStream::iPipeStream(zelIPipeSBuf* source) : std::basic_istream<char>(source), buffer(source) {}

iPipeStream::~iPipeStream() = default;

zelEvent* iPipeStream::GetReadEvent() {
    return new zelIPipeEvent(this);
}

oPipeStream::oPipeStream(zelOPipeSBuf* sink) : std::basic_ostream<char>(sink), buffer(sink) {}

oPipeStream::~oPipeStream() {
    try {
        std::basic_ostream<char>::flush();
    } catch (...) {
        // The caller has asked for exceptions, and nobody may get one out of a destructor.
    }
}

errstatus CreatePipeSt(oPipeStream** out, iPipeStream** in) {
    zelOutputPipe outputPipe;
    zelInputPipe inputPipe;
    if (!zelAnonymousPipe::Create(outputPipe, inputPipe))
        return errPipeFailed;
    // Both streams or neither, also when memory runs out in between.
    OpenEnd writeEnd(outputPipe.fd());
    OpenEnd readEnd(inputPipe.fd());
    std::unique_ptr<oPipeStream, PipeDeleter> writer(new oPipeStream(new zelOPipeSBuf(outputPipe)));
    writeEnd.Release();
    *in = new iPipeStream(new zelIPipeSBuf(inputPipe));
    readEnd.Release();
    *out = writer.release();
    return errOK;
}

void DeletePipe(iPipeStream* stream) {
    const std::unique_ptr<zelIPipeSBuf> buffer(stream->rdbuf());
    delete stream;
}

void DeletePipe(oPipeStream* stream) {
    const std::unique_ptr<zelOPipeSBuf> buffer(stream->rdbuf());
    delete stream;
}

zelPipeEvent::~zelPipeEvent() = default;

zelIPipeEvent::zelIPipeEvent(iPipeStream* source)
    : zelPipeEvent(source->rdbuf()->pipe()), stream(source) {}

int zelIPipeEvent::GetKind() {
    return eventKind;
}

void* zelIPipeEvent::GetInfo() {
    return this;
}

zelIPipeEvent* zelIPipeEvent::cast(zelEvent* event) {
    return event->GetKind() == eventKind ? static_cast<zelIPipeEvent*>(event->GetInfo()) : nullptr;
}
