#include "mem/symbolizer/build_id_text.h"

#include <algorithm>

MEM_BUILD_ID_TEXT::MEM_BUILD_ID_TEXT(const MEM_ELF_IDENTITY& identity) {
  constexpr char digits[] = "0123456789abcdef";
  const auto& bytes = identity.build_id;
  const auto used =
      bytes.size() - static_cast<std::size_t>(std::find_if(bytes.rbegin(), bytes.rend(),
                                                           [](auto byte) { return byte != 0; }) -
                                              bytes.rbegin());
  for (const std::size_t usual : {0U, 8U, 16U, 20U, 32U})
    if (m_length < 2 * used) m_length = 2 * usual;
  for (std::size_t i = 0; i < m_length; ++i)
    m_text[i] = digits[i % 2 == 0 ? bytes[i / 2] >> 4 : bytes[i / 2] & 0xf];
}
