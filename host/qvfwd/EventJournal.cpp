#include "EventJournal.h"

#include "EventRecord.h"
#include "PacketLine.h"
#include "QvControl.h"
#include "VelaEventLogMsg.pb.h"

namespace qvfwd {

void EventJournal::Write(const std::string& record) {
    if (m_file != nullptr) {
        m_file->Append(record);
    }
    m_records.Publish(qvctl::kRecord, record);
}

void EventJournal::OnEvent(const std::string& event) {
    qor::vela::EventLogItemFw item;
    if (!item.ParseFromString(event)) {
        return;
    }
    const int64_t now = m_clock.NowMicros();
    std::optional<PacketLine> packet = ReadPacketLine(item.detail());
    if (!packet) {
        Write(LogRecord(now, LogText(item.detail())));
        return;
    }
    std::optional<RulePlace> place = m_rules.PlaceOf(packet->rule);
    m_metrics.CountEvent(packet->ActionWord(), place ? std::to_string(place->set) : "");
    if (m_limiter.Admit(packet->rule, now)) {
        Write(PacketRecord(now, *packet, place));
    }
}

void EventJournal::FlushSuppressed() {
    const int64_t now = m_clock.NowMicros();
    for (const SuppressedCount& held : m_limiter.TakeFinished(now)) {
        m_metrics.CountSuppressed(held.count);
        Write(SuppressedRecord(now, held.rule, held.second, held.count));
    }
}

}  // namespace qvfwd
