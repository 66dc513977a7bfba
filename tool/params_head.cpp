// SPDX-License-Identifier: MIT
#include "params_head.h"

#include <iterator>

#include "byte_order.h"
#include "libvoice_plugin.h"
#include "voice_records.h"

namespace voicectl {

namespace {

constexpr HeadWord kSignalHead[] = {{"endpoint"}, {"signal", true}, {"line"}, {"message"}, {"flags"}, {"pointer"}};
constexpr HeadWord kEventHead[] = {{"endpoint"}, {"event", true}, {"line"}, {"pointer"}};
constexpr HeadWord kSetHead[] = {{"pointer"}};
static_assert((std::size(kSignalHead) + 1) * kWordBytes == sizeof(voice_signal_t));
static_assert((std::size(kEventHead) + 1) * kWordBytes == sizeof(voice_event_t));
static_assert((std::size(kSetHead) + 1) * kWordBytes == sizeof(libvoice_param_set_t));

} // namespace

std::span<const HeadWord> head_of(ParamsForm form) {
    switch (form) {
    case ParamsForm::signal:
        return kSignalHead;
    case ParamsForm::event:
        return kEventHead;
    case ParamsForm::set:
        return kSetHead;
    case ParamsForm::buffer:
        break;
    }
    return {};
}

RecordKind kind_of(ParamsForm form) {
    return form == ParamsForm::signal  ? RecordKind::signal
           : form == ParamsForm::event ? RecordKind::event
                                       : RecordKind::param_set;
}

size_t head_bytes(ParamsForm form) {
    return form == ParamsForm::buffer ? 0 : (head_of(form).size() + 1) * kWordBytes;
}

} // namespace voicectl
