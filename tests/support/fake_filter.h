// A text filter of Windows that a test makes up, and has the system's loader give out for every file.
#pragma once

#include "os/os_filter_win32.h"

#include <windows.h>

#include <filter.h>
#include <filterr.h>
#include <string>
#include <vector>

namespace findwright {

struct fake_filter_t : IFilter, IPersistStream {
    // Chunks of pieces; a chunk without any is one of a value.
    std::vector<std::vector<std::u16string>> chunks;
    std::string loaded; // the stream's bytes
    HRESULT query_result = S_OK, load_result = S_OK, init_result = S_OK;
    int references = 0; // what is not given back
    size_t chunk = 0, piece = 0;
    u32 texts = 0; // calls of GetText

    STDMETHODIMP QueryInterface(REFIID id, void **out) override {
        *out = nullptr;
        if (FAILED(query_result) || !IsEqualGUID(id, IID_IPersistStream))
            return E_NOINTERFACE;
        references++;
        *out = static_cast<IPersistStream *>(this);
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++references); }
    STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(--references); }

    STDMETHODIMP Load(IStream *stream) override {
        char bytes[64];
        ULONG taken = 0;
        while (SUCCEEDED(stream->Read(bytes, sizeof(bytes), &taken)) && taken)
            loaded.append(bytes, taken);
        return load_result;
    }
    STDMETHODIMP GetClassID(CLSID *) override { return E_NOTIMPL; }
    STDMETHODIMP IsDirty() override { return E_NOTIMPL; }
    STDMETHODIMP Save(IStream *, BOOL) override { return E_NOTIMPL; }
    STDMETHODIMP GetSizeMax(ULARGE_INTEGER *) override { return E_NOTIMPL; }

    SCODE STDMETHODCALLTYPE Init(ULONG, ULONG, const FULLPROPSPEC *, ULONG *) override { return init_result; }
    SCODE STDMETHODCALLTYPE GetChunk(STAT_CHUNK *) override {
        piece = 0;
        return chunk++ < chunks.size() ? S_OK : FILTER_E_END_OF_CHUNKS;
    }
    SCODE STDMETHODCALLTYPE GetText(ULONG *count, WCHAR *out) override {
        texts++;
        const auto &pieces = chunks[chunk - 1];
        if (pieces.empty())
            return FILTER_E_NO_TEXT;
        if (piece == pieces.size())
            return FILTER_E_NO_MORE_TEXT;
        const std::u16string &text = pieces[piece++];
        *count = static_cast<ULONG>(text.copy(reinterpret_cast<char16_t *>(out), *count));
        return piece == pieces.size() ? FILTER_S_LAST_TEXT : S_OK;
    }
    SCODE STDMETHODCALLTYPE GetValue(PROPVARIANT **) override { return FILTER_E_NO_VALUES; }
    SCODE STDMETHODCALLTYPE BindRegion(FILTERREGION, REFIID, void **) override { return E_NOTIMPL; }
};

// For the length of a test.
struct fake_filter_scope_t {
    explicit fake_filter_scope_t(fake_filter_t *filter) {
        given = filter;
        os_filter_set_loader([](PCWSTR, IUnknown *, void **out) -> HRESULT {
            if (!given)
                return E_FAIL;
            given->references++;
            *out = static_cast<IFilter *>(given);
            return S_OK;
        });
    }
    ~fake_filter_scope_t() { os_filter_set_loader(nullptr); }
    fake_filter_scope_t(const fake_filter_scope_t &) = delete;
    fake_filter_scope_t &operator=(const fake_filter_scope_t &) = delete;

    static inline fake_filter_t *given;
};

} // namespace findwright
