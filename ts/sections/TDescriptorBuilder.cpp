#include "TDescriptorBuilder.h"

#include "TMjdTime.h"
#include "TSectionWriter.h"
#include "TTextCodec.h"

namespace Ostrel {

namespace {

const unsigned int kMaxPayload = 255;

std::vector<unsigned char> wrap(unsigned char tag, const TSectionWriter& payload) {
  if (!payload.ok())
    return std::vector<unsigned char>();
  return TDescriptorBuilder::raw(tag, payload.data());
}

// Writes a text with a one-byte length in front; fails the writer when it is
// longer than 255 bytes.
void lengthPrefixedText(const std::string& utf8, TSectionWriter* w) {
  std::vector<unsigned char> text = TTextCodec::encode(utf8);
  if (text.size() > kMaxPayload) {
    w->fail();
    return;
  }
  w->u8(static_cast<unsigned int>(text.size()));
  w->bytes(text);
}

}  // namespace

std::vector<unsigned char> TDescriptorBuilder::raw(unsigned char tag,
                                                   const std::vector<unsigned char>& payload) {
  if (payload.size() > kMaxPayload)
    return std::vector<unsigned char>();
  std::vector<unsigned char> out;
  out.reserve(payload.size() + 2);
  out.push_back(tag);
  out.push_back(static_cast<unsigned char>(payload.size()));
  out.insert(out.end(), payload.begin(), payload.end());
  return out;
}

std::vector<unsigned char> TDescriptorBuilder::networkName(const std::string& name) {
  return raw(0x40, TTextCodec::encode(name));
}

std::vector<unsigned char> TDescriptorBuilder::serviceList(
    const std::vector<std::pair<unsigned short, unsigned char>>& services) {
  TSectionWriter w;
  for (unsigned int i = 0; i < services.size(); ++i) {
    w.u16(services[i].first);
    w.u8(services[i].second);
  }
  return wrap(0x41, w);
}

std::vector<unsigned char> TDescriptorBuilder::service(unsigned char serviceType,
                                                       const std::string& provider,
                                                       const std::string& name) {
  TSectionWriter w;
  w.u8(serviceType);
  lengthPrefixedText(provider, &w);
  lengthPrefixedText(name, &w);
  return wrap(0x48, w);
}

std::vector<unsigned char> TDescriptorBuilder::streamIdentifier(unsigned char componentTag) {
  return raw(0x52, std::vector<unsigned char>(1, componentTag));
}

std::vector<unsigned char> TDescriptorBuilder::localTimeOffset(unsigned int countryCode,
                                                               unsigned char regionId,
                                                               int offsetSeconds,
                                                               long long timeOfChange,
                                                               int nextOffsetSeconds) {
  bool negative = offsetSeconds < 0;
  unsigned char offset[2];
  unsigned char change[5];
  unsigned char next[2];
  if (!TMjdTime::encodeHhmm(negative ? -offsetSeconds : offsetSeconds, offset) ||
      !TMjdTime::encodeDateTime(timeOfChange, change) ||
      !TMjdTime::encodeHhmm(nextOffsetSeconds < 0 ? -nextOffsetSeconds : nextOffsetSeconds, next)) {
    return std::vector<unsigned char>();
  }
  TSectionWriter w;
  w.u24(countryCode);
  w.u8(((regionId & 0x3F) << 2) | 0x02 | (negative ? 1 : 0));
  w.bytes(std::vector<unsigned char>(offset, offset + 2));
  w.bytes(std::vector<unsigned char>(change, change + 5));
  w.bytes(std::vector<unsigned char>(next, next + 2));
  return wrap(0x58, w);
}

std::vector<unsigned char> TDescriptorBuilder::tsInformation(
    unsigned char remoteControlKeyId, const std::string& tsName,
    const std::vector<std::pair<unsigned char, std::vector<unsigned short>>>& types) {
  std::vector<unsigned char> name = TTextCodec::encode(tsName);
  if (name.size() > 0x3F || types.size() > 3)
    return std::vector<unsigned char>();
  TSectionWriter w;
  w.u8(remoteControlKeyId);
  w.u8((static_cast<unsigned int>(name.size()) << 2) | static_cast<unsigned int>(types.size()));
  w.bytes(name);
  for (unsigned int i = 0; i < types.size(); ++i) {
    const std::vector<unsigned short>& ids = types[i].second;
    if (ids.size() > 0xFF)
      return std::vector<unsigned char>();
    w.u8(types[i].first);
    w.u8(static_cast<unsigned int>(ids.size()));
    for (unsigned int k = 0; k < ids.size(); ++k)
      w.u16(ids[k]);
  }
  return wrap(0xCD, w);
}

std::vector<unsigned char> TDescriptorBuilder::terrestrialDeliverySystem(
    unsigned short areaCode, unsigned char guardInterval, unsigned char transmissionMode,
    const std::vector<unsigned short>& frequencies) {
  TSectionWriter w;
  w.u16(((areaCode & 0x0FFF) << 4) | ((guardInterval & 0x03) << 2) | (transmissionMode & 0x03));
  for (unsigned int i = 0; i < frequencies.size(); ++i)
    w.u16(frequencies[i]);
  return wrap(0xFA, w);
}

std::vector<unsigned char> TDescriptorBuilder::partialReception(
    const std::vector<unsigned short>& serviceIds) {
  TSectionWriter w;
  for (unsigned int i = 0; i < serviceIds.size(); ++i)
    w.u16(serviceIds[i]);
  return wrap(0xFB, w);
}

void TDescriptorBuilder::append(std::vector<unsigned char>* to,
                                const std::vector<unsigned char>& more) {
  to->insert(to->end(), more.begin(), more.end());
}

}  // namespace Ostrel
