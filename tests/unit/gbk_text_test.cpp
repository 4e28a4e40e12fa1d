// The GBK constants against an independent conversion of the readable texts.
#include "support/gbk_text.h"

#include <gtest/gtest.h>

#include <array>
#include <iconv.h>
#include <stdexcept>
#include <string>
#include <string_view>

namespace gbk = qaven::gbk;

namespace {

std::string to_gbk(std::string_view utf8) {
    std::string text(utf8);
    iconv_t conversion = iconv_open("GBK", "UTF-8");
    if (conversion == reinterpret_cast<iconv_t>(-1)) {
        throw std::runtime_error("no conversion from UTF-8 to GBK");
    }
    std::string converted(2 * text.size() + 1, '\0');
    char* in = text.data();
    char* out = converted.data();
    std::size_t in_left = text.size();
    std::size_t out_left = converted.size();
    const std::size_t result = iconv(conversion, &in, &in_left, &out, &out_left);
    iconv_close(conversion);
    if (result == static_cast<std::size_t>(-1)) {
        throw std::runtime_error("no GBK text: " + text);
    }
    converted.resize(converted.size() - out_left);
    return converted;
}

struct Text {
    std::string_view name;
    std::string_view gbk;
    const char* readable;
};

#define QAVEN_TEXT(name, readable)                                                                 \
    Text {                                                                                         \
#name, gbk::name, readable                                                                 \
    }

const std::array kDescriptions{
    QAVEN_TEXT(kNoConfiguration, " 没有配置参数     "),
    QAVEN_TEXT(kNoSuchTerminal, " 没有指定的终端   "),
    QAVEN_TEXT(kNoOpenCommand, " 没有打开指令     "),
    QAVEN_TEXT(kNoCloseCommand, " 没有关闭指令     "),
    QAVEN_TEXT(kNoDescription, "                  "),
    QAVEN_TEXT(kResponseTimeout, " 等待响应超时     "),
    QAVEN_TEXT(kInvalidDeviceHandle, " 无效设备句柄     "),
    QAVEN_TEXT(kCardNotSeated, " 卡未放好或多张卡 "),
    QAVEN_TEXT(kInvalidCard, " 无效的卡片       "),
    QAVEN_TEXT(kIllegalData, " 数据非法         "),
    QAVEN_TEXT(kAuxprefFailed, " 执行 AUXPREF 失败"),
    QAVEN_TEXT(kAuxsuffFailed, " 执行 AUXSUFF 失败"),
    QAVEN_TEXT(kWriteFailed, " 写数据失败失败   "),
    QAVEN_TEXT(kDeviceSilent, " 设备无响应       "),
    QAVEN_TEXT(kGetAuxiliaryPortFailed, " 取辅口参数失败   "),
    QAVEN_TEXT(kSetAuxiliaryPortFailed, " 置辅口参数失败   "),
    QAVEN_TEXT(kNoCdol2, " 没有找到CDOL2    "),
    QAVEN_TEXT(kNoTag, " 没有找到标签     "),
    QAVEN_TEXT(kEmptyOrIllegalData, " 空数据或非法数据 "),
    QAVEN_TEXT(kNoTag91, " 没有标签91的数据 "),
    QAVEN_TEXT(kNoTag80, " 没有标签80的数据 "),
};

const std::array kOtherTexts{
    QAVEN_TEXT(kNoTc, " 没有生成TC  \t "),
    QAVEN_TEXT(kGetCardInfoFailed, "获取IC卡信息失败"),
    QAVEN_TEXT(kGetArqcFailed, "获取ARQC失败"),
    QAVEN_TEXT(kExampleMerchantName, "示例商户名"),
    QAVEN_TEXT(kCardInfoTitle, "--- 取卡信息 ---\r\n"),
    QAVEN_TEXT(kSelectionTitle, "--- 应用选择 ---\r\n"),
    QAVEN_TEXT(kQueryDataFormat, "输入的查询数据[ASCII]：lpicappdata:%s\n"),
    QAVEN_TEXT(kTxDataFormat, "输入的交易数据[ASCII]TxData:%s\n"),
    QAVEN_TEXT(kCompletedTxDataFormat, "补全的交易数据：tmptransdata:%s\n"),
    QAVEN_TEXT(kDataBeforeCdol1Title, "\r\n --- 查找CDOL1之前的读应用返回数据---\r\n"),
    QAVEN_TEXT(kNotAnArqcFormat, "产生ARQC失败（密文不为0x80)! temp返回是%02X\n"),
    QAVEN_TEXT(kIssuerApplicationData, "发卡行应用数据"),
    QAVEN_TEXT(kTerminalVerificationResults, "终端验证结果"),
    QAVEN_TEXT(kTransactionType, "交易类型"),
    QAVEN_TEXT(kAuthorisedAmount, "授权金额"),
    QAVEN_TEXT(kCardProductFormat, "卡产品标识 qmcx_gettagvalue ireturn:%d\n"),
    QAVEN_TEXT(kArqcLengthFormat, "\nARQC长度:ARQCLen=%d\n"),
    QAVEN_TEXT(kArqcDataFormat, "ARQC数据:ARQC=%s\n"),
    QAVEN_TEXT(kGetArqcFailedTrace, "-获取ARQC失败-\n"),
};

#undef QAVEN_TEXT

TEST(GbkText, EveryConstantIsItsReadableTextInGbk) {
    for (const Text& text : kDescriptions) {
        EXPECT_EQ(text.gbk, to_gbk(text.readable)) << text.name;
    }
    for (const Text& text : kOtherTexts) {
        EXPECT_EQ(text.gbk, to_gbk(text.readable)) << text.name;
    }
}

TEST(GbkText, DescriptionsFillADisplayOfEighteenColumns) {
    for (const Text& text : kDescriptions) {
        EXPECT_EQ(text.gbk.size(), 18U) << text.name;
    }
}

TEST(GbkText, TheDescriptionOfAMissingTcHasFifteenBytesAndATab) {
    const std::string_view text = gbk::kNoTc;
    EXPECT_EQ(text.size(), 15U);
    EXPECT_TRUE(text.ends_with("TC  \t "));
}

TEST(GbkText, TheExampleMerchantNameLeavesHalfItsFieldFree) {
    EXPECT_EQ(std::string_view(gbk::kExampleMerchantName).size(), 10U);
}

} // namespace
