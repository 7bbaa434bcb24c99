#include "search/text/commoncharacters.h"

#include <QSet>

namespace search::text {

namespace {

// By frequency in modern prose, then words of office documents.
const char *const kHan =
    "的一是不了在人有我他这个们中来上大为和国地到以说时要就出会可也你对生能而子那得于着下自之年过"
    "发后作里用道行所然家种事成方多经么去法学如都同现当没动面起看定天分还进好小部其些主样理心她本"
    "前开但因只从想实日军者意无力它与长把机十民第公此已工使情明性知全三又关点正业外将两高间由问很"
    "最重并物手应战向头文体政美相见被利什二等产或新己制身果加西斯月话合回特代内信表化老给世位次度"
    "门任常先海通教儿原东声提立及比员解水名真论处走义各入几口认条平系气题活尔更别打女变四神总何电"
    "数安少报才结反受目太量再感建务做接必场件计管期市直德资命山金指克许统区保至队形社便空决治展马"
    "科司五基眼书非则听白却界达光放强即像难且权思王象完设式色路记南品住告类求据程北边死张该交规万"
    "取拉格望觉术领共确传师观清今切院让识候带导争运笔议会纪要合同协方案总结报告通知申请说明预算项"
    "目计划客户名单价格采购销售发票财务审核批准草稿备注附件会议记录培训考试成绩简历招聘工资部门联系"
    "电话地址日期单位编号数据分析研究论文图片测试文件系统软件网络服务管理技术产品质量安全生日快乐"
    "北京上海广州深圳中国公司早晚午饭买卖吃喝家妈爸朋友爱谢您请吗吧呢啊哪谁怎样晨春夏秋冬花红绿黑"
    "個們來為國說時會對過發後裡麼學當沒動還進樣開從實軍無與長機業關點將兩間問戰頭體見產話給門兒東"
    "聲員論處義認條題爾變總電數報結務場計資許統區隊決馬書則聽卻達強難權設記類據邊張該規萬覺術領確"
    "傳師觀讓識帶導爭運議紀協預項劃戶單價購銷財審備註錄訓試績簡歷聘聯係編號圖測網絡軟質廣縣鄉"
    "親愛謝請買賣飯媽樂見臺灣這種經應現並氣幾內總員統選讀寫錢線車電腦檔案視窗";

const char *const kHangul =
    "이다는에의가을하고로한지를도기서은리사자나시대아인어으라그제일수정해보있스부과전들면원상구게니"
    "여장"
    "와조경공주만것안소비동오우관국성중세생당개미유산거연내무모요적행신문교진선분방계용입출회의록서"
    "울계약"
    "습했했업발표실명된되야위년월치마화금물영식재간할까합없같때더많말람본각체술품질안녕";

const QSet<QChar> &setOf(const char *characters)
{
    static const auto make = [](const char *list) {
        QSet<QChar> set;
        for (const QChar c : QString::fromUtf8(list))
            set.insert(c);
        return set;
    };
    static const QSet<QChar> han = make(kHan);
    static const QSet<QChar> hangul = make(kHangul);
    return characters == kHan ? han : hangul;
}

} // namespace

bool isCommonHan(QChar c)
{
    return setOf(kHan).contains(c);
}

bool isCommonHangul(QChar c)
{
    return setOf(kHangul).contains(c);
}

} // namespace search::text
