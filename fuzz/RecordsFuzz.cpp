// Any text is a record, what the daemon said, or a decoding error.

#include "KelvadromeKit/wire/AgentsStatus.h"
#include "KelvadromeKit/wire/Card.h"
#include "KelvadromeKit/wire/Envelope.h"
#include "KelvadromeKit/wire/Records.h"

using namespace kelvadrome;

namespace {

template <class T>
void decode(std::int64_t status, const std::string& text) {
    try {
        Envelope::decode<T>({status, {}, text});
    } catch (const DaemonError&) {
    } catch (const DecodingError&) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(bytes), size);
    for (const std::int64_t status : {200, 500}) {
        decode<std::vector<Card>>(status, text);
        decode<AgentsStatus>(status, text);
        decode<std::vector<BoardRow>>(status, text);
        decode<std::vector<Receipt>>(status, text);
        decode<Health>(status, text);
        decode<InboxFeed>(status, text);
        decode<LoginLink>(status, text);
        decode<OnboardingStatus>(status, text);
        decode<AnyDecodable>(status, text);
    }
    return 0;
}
