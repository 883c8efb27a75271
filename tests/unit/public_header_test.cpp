// The public header promises numbers that the library takes from headers of its own.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "api/context.h"
#include "api/link_codes.h"
#include "api/packet_buffer.h"
#include "olk_sat_utils/frames.h"
#include "olk_sat_utils/return_codes.h"
#include "olk_utils/ini_file.h"
#include "support/scratch_directory.h"
#include "talvex/talvex.h"

static_assert(TALVEX_PACKET_SIZE == kPacketBufferSize);

static_assert(TALVEX_LINK_DEVICE_NOT_FOUND == int{SAT_API_ERR_LNX_DEV_NOT_FOUND});
static_assert(TALVEX_LINK_PORT_CLOSED == int{kLinkPortClosed});
static_assert(TALVEX_LINK_SETTINGS_FAILED == int{kLinkSettings});
static_assert(TALVEX_LINK_NO_REPLY == int{kLinkNoReply});
static_assert(TALVEX_LINK_NO_REPLY_START == int{kLinkNoStx});
static_assert(TALVEX_LINK_BAD_CHECKSUM == int{kLinkChecksum});
static_assert(TALVEX_LINK_BROKEN_OFF == int{kLinkWrite} && TALVEX_LINK_BROKEN_OFF == int{kLinkReplyGap});
static_assert(TALVEX_LINK_STALLED == int{kLinkWriteStalled} && TALVEX_LINK_STALLED == int{kLinkRead});
static_assert(TALVEX_LINK_ATTEMPTS_USED == int{kLinkAttemptsUsed});
static_assert(TALVEX_LINK_REFUSED == int{kLinkRefused});
static_assert(TALVEX_LINK_LOCK_FAILED == int{kLinkLock});
static_assert(TALVEX_LINK_UNLOCK_FAILED == int{kLinkUnlock});
static_assert(TALVEX_LINK_NO_BUSY_REPLY == kBusyReplyError);

static_assert(TALVEX_STX == kStx && TALVEX_ETX == kEtx && TALVEX_ACK == kAck && TALVEX_NAK == kNak);

static_assert(TALVEX_INI_ITEM_ADDED == int{INI_FILE_ITEM_ADDED});
static_assert(TALVEX_INI_ERR_INVALID_PARAM == int{INI_FILE_ERR_INVALID_PARAM});
static_assert(TALVEX_INI_ERR_NOT_FOUND == int{INI_FILE_ERR_NOT_FOUND});
static_assert(TALVEX_INI_ERR_OPEN == int{INI_FILE_ERR_OPEN});
static_assert(TALVEX_INI_ERR_SECTION_NOT_FOUND == int{INI_FILE_ERR_SESSION_NOT_FOUND});
static_assert(TALVEX_INI_ERR_ITEM_NOT_FOUND == int{INI_FILE_ERR_ITEM_NOT_FOUND});
static_assert(TALVEX_INI_ERR_CREATE == int{INI_FILE_ERR_CREATE});

static_assert(sizeof pB64_EncTable == 64 && sizeof mod_table == 12);
static_assert(sizeof tLog.strLogFilePath == 512 && sizeof tLog.strLogFileName == 512);

namespace {

TEST(PublicHeader, FailureTextsBeginWithTheirPrefix) {
  char text[kBusyReplySize];
  ASSERT_EQ(generate_98_return(text, 42, kSatFunctions[kConsultarUltimaSessaoFiscal]),
            TALVEX_LINK_NO_BUSY_REPLY);
  const std::string prefix = TALVEX_FAILURE_PREFIX;
  ASSERT_TRUE(std::string(text).starts_with(prefix));
  EXPECT_EQ(atoi(text + prefix.size()), TALVEX_LINK_NO_BUSY_REPLY);
}

TEST(PublicHeader, KindsAndRemovalsOfFiles) {
  const ScratchDirectory directory;
  EXPECT_EQ(OLK_Exist(nullptr), TALVEX_EXIST_NULL);
  EXPECT_EQ(OLK_Exist("x"), TALVEX_EXIST_NOTHING);
  EXPECT_EQ(OLK_CreateDir(nullptr), TALVEX_CREATE_DIR_NULL);
  EXPECT_EQ(OLK_CreateDir("missing/x"), TALVEX_CREATE_DIR_FAILED);
  EXPECT_EQ(OLK_CreateDir("x"), TALVEX_CREATE_DIR_CREATED);
  EXPECT_EQ(OLK_CreateDir("x"), TALVEX_CREATE_DIR_EXISTED);
  EXPECT_EQ(OLK_Exist("x"), TALVEX_EXIST_DIRECTORY);
  EXPECT_EQ(OLK_DeleteFile("x"), TALVEX_DELETE_OTHER_KIND);
  EXPECT_EQ(OLK_DeleteDir("x"), TALVEX_DELETE_DONE);
  EXPECT_EQ(OLK_DeleteDir("x"), TALVEX_DELETE_NOTHING);
  EXPECT_EQ(OLK_DeleteDir("."), TALVEX_DELETE_DIRECTORY_STAYS);
  EXPECT_EQ(OLK_SetIniFileValue("f", "S", nullptr, nullptr), TALVEX_INI_SECTION_ONLY);
  EXPECT_EQ(OLK_Exist("f"), TALVEX_EXIST_FILE);
  EXPECT_EQ(OLK_CreateDir("f"), TALVEX_CREATE_DIR_OTHER_KIND);
  EXPECT_EQ(OLK_DeleteFile("f"), TALVEX_DELETE_DONE);
}

TEST(PublicHeader, AnswersOfTheIniWriter) {
  const ScratchDirectory directory;
  char value[TALVEX_INI_VALUE_SIZE];
  EXPECT_EQ(OLK_SetIniFileValue("f", "S", "K", "V"), TALVEX_INI_CREATED);
  EXPECT_EQ(OLK_SetIniFileValue("f", "S", "K", "V"), TALVEX_INI_UNCHANGED);
  EXPECT_EQ(OLK_SetIniFileValue("f", "S", "K", "W"), TALVEX_INI_CHANGED);
  EXPECT_EQ(OLK_SetIniFileValue("f", "S", "L", "V"), TALVEX_INI_ITEM_ADDED);
  EXPECT_EQ(OLK_SetIniFileValue("f", "S", "M", nullptr), TALVEX_INI_NO_VALUE);
  EXPECT_EQ(OLK_DelIniFileSection("f", "S"), TALVEX_INI_SECTION_ONLY);
  EXPECT_EQ(OLK_GetIniFileValue("f", "S", "K", value), TALVEX_INI_FOUND);
  EXPECT_EQ(OLK_GetIniFileValue("f", "T", "K", value), TALVEX_INI_ERR_SECTION_NOT_FOUND);
  EXPECT_EQ(OLK_GetIniFileValue("f", "S", "M", value), TALVEX_INI_ERR_ITEM_NOT_FOUND);
  EXPECT_EQ(OLK_GetIniFileValue("g", "S", "K", value), TALVEX_INI_ERR_NOT_FOUND);
  EXPECT_EQ(OLK_GetIniFileValue("f", "S", "K", nullptr), TALVEX_INI_ERR_INVALID_PARAM);
}

TEST(PublicHeader, AnswersOfTheReplyParser) {
  const ScratchDirectory directory;
  uint32_t session = 0;
  EXPECT_EQ(SAT_APP_RspParcer("ConsultarSAT", 7, nullptr, &session, nullptr, "SAT Erro[-02000]"),
            TALVEX_APP_NO_SEPARATOR);
  EXPECT_EQ(
      SAT_APP_RspParcer("ConsultarSAT", 7, nullptr, &session, nullptr, "000007|08000|SAT em operacao||"),
      8000);
  EXPECT_EQ(session, 7U);
}

}  // namespace
