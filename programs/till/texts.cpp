#include "texts.h"

#include <clocale>
#include <cstdlib>
#include <string_view>

#include <langinfo.h>

#include "charset.h"

namespace zat::till {
namespace {

struct TextRow {
  Text oText;
  const char* pccEnglish;
  const char* pccRussian;
};

// UTF-8; "{}" is replaced by what the caller gives.
constexpr TextRow kTexts[] = {
    // what the command line asks and answers
    {Text::About, "A cash desk on the command line: takes card payments through libzat_ms.so.",
     "Касса в командной строке: принимает оплату картой через libzat_ms.so."},
    {Text::Usage, "Usage", "Вызов"},
    {Text::Options, "Options", "Ключи"},
    {Text::Arguments, "Arguments", "Параметры"},
    {Text::Commands, "Commands", "Команды"},
    {Text::Examples, "Examples", "Примеры"},
    {Text::ExitCodes, "Exit codes", "Коды завершения"},
    {Text::SeeHelp, "zat_till --help shows the commands.", "Команды показывает zat_till --help."},
    {Text::OptHelp, "print this help and exit", "показать эту справку и выйти"},
    {Text::OptVersion, "print the version and exit", "показать версию и выйти"},
    {Text::OptLib, "the library (default: libzat_ms.so beside this program)",
     "библиотека (без ключа: libzat_ms.so рядом с этой программой)"},
    {Text::OptConfig, "configuration path handed on to the terminal module",
     "путь к настройкам, который получит терминальный модуль"},
    {Text::OptTid,
     "terminal id, 1 to 10 letters and digits (default: 1); tills that work at the same time need different "
     "ones",
     "номер терминала, от 1 до 10 букв и цифр (без ключа: 1); у касс, работающих одновременно, он разный"},
    {Text::OptTrack2,
     "track 2 of a card that the till has read; \"-\" reads it from the standard input, where other users of "
     "this machine cannot see it",
     "вторая дорожка карты, считанной кассой; «-» читает её со стандартного ввода, где её не видят другие "
     "пользователи этой машины"},
    {Text::OptJson, "print one JSON object in place of the texts", "вывести один объект JSON вместо текста"},
    {Text::OptWait, "seconds to wait for the pause between two requests of a session (default: 60)",
     "сколько секунд ждать конца паузы между запросами одного сеанса (без ключа: 60)"},
    {Text::ArgAmount, "amount, above zero, at most two decimals",
     "сумма больше нуля, не более двух знаков после запятой"},
    {Text::ArgRrn, "reference number of the earlier operation, as its receipt shows it",
     "номер ссылки прежней операции, как на её чеке"},
    {Text::ArgWorkId, "operation code, two characters", "код операции, два знака"},
    {Text::ArgData, "data of the request, as they stand", "данные запроса, как есть"},
    {Text::CmdSale, "take a payment", "оплата"},
    {Text::CmdRefund, "give money back to a card", "возврат денег на карту"},
    {Text::CmdPreauth, "reserve an amount on a card", "блокировка суммы на карте"},
    {Text::CmdReverse, "reverse a sale of today", "отмена сегодняшней оплаты"},
    {Text::CmdVoid, "void an operation that is not closed yet", "аннулирование ещё не закрытой операции"},
    {Text::CmdLogin, "log the terminal in", "регистрация терминала"},
    {Text::CmdTotals, "ask for the totals of the day", "запрос итогов дня"},
    {Text::CmdEndOfDay, "close the day", "закрытие дня"},
    {Text::CmdRaw, "send any request, for developers", "любой запрос, для разработчиков"},
    {Text::Missing, "Something is missing: {}.", "Не хватает: {}."},
    {Text::NotUnderstood, "Not understood: {}.", "Непонятно: {}."},
    {Text::BadAmount,
     "Amount \"{}\": write it with digits and at most one point or comma, for example 1250.50.",
     "Сумма «{}»: нужны цифры и не более одной точки или запятой, например 1250.50."},
    {Text::NegativeAmount, "Amount \"{}\" is negative; to give money back use refund or reverse.",
     "Сумма «{}» отрицательная; вернуть деньги можно командами refund и reverse."},
    {Text::AmountDecimals, "Amount \"{}\" has more than two decimals.",
     "В сумме «{}» больше двух знаков после запятой."},
    {Text::AmountTooLong, "Amount \"{}\" is too large: 9999999999.99 at most.",
     "Сумма «{}» слишком велика: не более 9999999999.99."},
    {Text::AmountZero, "Amount \"{}\" is zero.", "Сумма «{}» равна нулю."},
    {Text::BadTid, "Terminal id \"{}\": 1 to 10 Latin letters and digits.",
     "Номер терминала «{}»: от 1 до 10 латинских букв и цифр."},
    {Text::BadRrn, "Reference number \"{}\": 1 to 12 Latin letters and digits.",
     "Номер ссылки «{}»: от 1 до 12 латинских букв и цифр."},
    {Text::BadTrack2, "This is not a track 2 (it is not shown here).",
     "Это не вторая дорожка карты (здесь она не показана)."},
    {Text::BadWorkId, "Operation code \"{}\": exactly two printable ASCII characters.",
     "Код операции «{}»: ровно два печатных знака ASCII."},
    {Text::DataTooLong, "The data are too long: {} bytes, 2034 at most.",
     "Данные слишком длинные: {} байт, не более 2034."},
    {Text::Data255,
     "A message with exactly 255 bytes of data cannot be sent: its header stands for one without data.",
     "Сообщение ровно с 255 байтами данных отправить нельзя: такой заголовок означает сообщение без данных."},
    {Text::BadData, "The data have characters that Windows-1251 lacks.",
     "В данных есть знаки, которых нет в Windows-1251."},
    {Text::BadWait, "Waiting time \"{}\": whole seconds from 0 to 3600.",
     "Время ожидания «{}»: целые секунды от 0 до 3600."},
    {Text::OptLink,
     "reach the terminal over this link, without the library: tcp:HOST:PORT or "
     "serial:DEVICE[,SPEED[,8N1[,none]]]",
     "связь с терминалом напрямую, без библиотеки: tcp:HOST:PORT или serial:DEVICE[,SPEED[,8N1[,none]]]"},
    {Text::CmdJournal, "show the journal, unknown outcomes first", "журнал оплат, сначала неизвестный итог"},
    {Text::CmdRecover, "ask the terminal for unknown outcomes", "спросить терминал о неизвестном итоге"},
    {Text::CmdSettle, "say yourself what became of a payment", "сказать самому, чем кончилась оплата"},
    {Text::OptJournal, "the journal of payments (default: till.jnl in the library's installation)",
     "журнал оплат (без ключа: till.jnl в установке библиотеки)"},
    {Text::OptNoJournal, "keep no journal: a payment whose outcome is lost leaves no trace here",
     "без журнала: от оплаты с потерянным итогом здесь не останется следа"},
    {Text::OptAll, "all entries (default: the open ones and the last 10)",
     "все записи (без ключа: открытые и последние 10)"},
    {Text::ArgNumber, "number of the entry, as journal shows it", "номер записи, как её показывает journal"},
    {Text::ArgFate, "paid or not-paid", "paid (оплачено) или not-paid (не оплачено)"},
    {Text::BadNumber, "Number \"{}\": the number of an entry, as zat_till journal shows it.",
     "Номер «{}»: нужен номер записи, как его показывает zat_till journal."},
    {Text::BadFate, "\"{}\": paid or not-paid.", "«{}»: нужно paid или not-paid."},
    // the library
    {Text::LibMissing, "The library {} does not exist. Give its place with --lib.",
     "Библиотеки {} нет. Укажите её место ключом --lib."},
    {Text::LibUnreadable, "{} cannot be loaded as a library: {}", "{} не загружается как библиотека: {}"},
    {Text::LibForeign, "{} is a library, but not this one: it has no function {}.",
     "{} — библиотека, но не та: в ней нет функции {}."},
    {Text::LibNoSession, "The library could not make a session.", "Библиотека не смогла открыть сеанс."},
    {Text::LinkClosed, "The link {} cannot be opened: {}.", "Связь {} не открывается: {}."},
    // what happens meanwhile
    {Text::Connecting, "Waiting for the terminal", "Ожидание терминала"},
    {Text::StOk, "The terminal is at work", "Терминал работает"},
    {Text::StNotLoggedIn, "The terminal is not logged in (zat_till login)",
     "Терминал не зарегистрирован (zat_till login)"},
    {Text::StPin, "PIN requested", "Ввод ПИН-кода"},
    {Text::StOnline, "Going online to the bank", "Связь с банком"},
    {Text::StNoReference, "There is no operation with this reference number",
     "Операции с таким номером ссылки нет"},
    {Text::StHold, "The terminal asks to wait", "Терминал просит подождать"},
    {Text::StConfirm, "The terminal asks for a confirmation: {}", "Терминал просит подтверждения: {}"},
    {Text::StInfo, "Message of the terminal: {}", "Сообщение терминала: {}"},
    {Text::StBreak, "The terminal breaks the operation off", "Терминал прерывает операцию"},
    {Text::StNoBreak, "Too late to break off: the operation goes on",
     "Прервать уже нельзя: операция продолжается"},
    {Text::StPause, "Pause between two requests", "Пауза между запросами"},
    {Text::Seconds, "{} s", "{} с"},
    {Text::BreakAsked,
     "Asking the terminal to break off. Ctrl-C once more leaves at once; the outcome is then unknown.",
     "Прошу терминал прервать операцию. Ещё раз Ctrl-C — выход немедленно, итог будет неизвестен."},
    {Text::BreakNoEffect,
     "The break request has had no effect so far. The library takes one only while it waits for the "
     "terminal, and only with BREAK=1 in section [TILL] of micromgl.cfg.",
     "Просьба прервать пока не действует. Библиотека принимает её, только когда ждёт терминал и когда в "
     "разделе [TILL] файла micromgl.cfg стоит BREAK=1."},
    {Text::LeftAtOnce, "THE OUTCOME IS UNKNOWN: the terminal goes on by itself and may take the money.",
     "ИТОГ НЕИЗВЕСТЕН: терминал продолжает сам и может списать деньги."},
    // outcomes
    {Text::Approved, "APPROVED", "ОДОБРЕНО"},
    {Text::Done, "DONE", "ВЫПОЛНЕНО"},
    {Text::Declined, "DECLINED", "ОТКЛОНЕНО"},
    {Text::Aborted, "ABORTED", "ПРЕРВАНО"},
    {Text::Refused, "NOT SENT", "НЕ ОТПРАВЛЕНО"},
    {Text::Unknown, "OUTCOME UNKNOWN", "ИТОГ НЕИЗВЕСТЕН"},
    {Text::BadUsage, "WRONG ARGUMENTS", "НЕВЕРНЫЕ ПАРАМЕТРЫ"},
    {Text::ExitApproved, "approved", "одобрено"},
    {Text::ExitDone, "done (operations without a bank's answer: login, totals, end of day)",
     "выполнено (операции без ответа банка: регистрация, итоги, закрытие дня)"},
    {Text::ExitDeclined, "declined by the bank or the terminal", "отклонено банком или терминалом"},
    {Text::ExitUsage, "wrong arguments", "неверные параметры"},
    {Text::ExitAborted, "aborted before a decision: break or cancel",
     "прервано до решения: по просьбе кассы или на терминале"},
    {Text::ExitRefused, "refused by the library, or no library: nothing was sent",
     "отказ библиотеки, или библиотеки нет: ничего не отправлено"},
    {Text::ExitUnknown, "lost link, outcome unknown: ask the terminal before paying again",
     "связь потеряна, итог неизвестен: спросите терминал прежде чем платить снова"},
    // why
    {Text::WhyResponse, "The bank's answer: {} {}", "Ответ банка: {} {}"},
    {Text::WhyRefusal, "The terminal's answer: {} {}", "Ответ терминала: {} {}"},
    {Text::WhyBreak, "Broken off at the till's request.", "Прервано по просьбе кассы."},
    {Text::WhyEnded, "The terminal ended the operation without a decision.",
     "Терминал закончил операцию без решения."},
    {Text::WhyGoodEnd, "The terminal has carried the operation out.", "Терминал выполнил операцию."},
    {Text::WhyNoResponse, "The terminal ended the operation well, but never sent the bank's answer.",
     "Терминал успешно закончил операцию, но ответа банка не прислал."},
    {Text::WhyBroken, "The bank's answer came damaged.", "Ответ банка пришёл повреждённым."},
    {Text::WhyContradiction, "The answer was an approval, but the terminal then reported a bad end.",
     "Ответ был положительный, но терминал сообщил о неудачном конце."},
    {Text::WhyEndless, "The library keeps answering without a message.",
     "Библиотека отвечает, но без сообщений."},
    {Text::WhyUnfinished, "An earlier exchange of this session has not ended.",
     "Предыдущий обмен этого сеанса не закончен."},
    {Text::WhyBadRequest, "No message can be made of this request.",
     "Из этого запроса нельзя составить сообщение."},
    {Text::WhyModuleMissing, "The terminal module zat_mm is not beside the library, or it is not executable.",
     "Рядом с библиотекой нет терминального модуля zat_mm, или его нельзя запустить."},
    {Text::WhyLost, "The link to the terminal module is lost (XL).",
     "Потеряна связь с терминальным модулем (XL)."},
    {Text::WhyHandle, "The library does not accept its own session ({}).",
     "Библиотека не принимает свой же сеанс ({})."},
    {Text::WhyState, "The session refuses requests (X2).", "Сеанс не принимает запросы (X2)."},
    {Text::WhyCommand, "The library does not know this operation (X3).",
     "Библиотека не знает такой операции (X3)."},
    {Text::WhyNoExchange, "The library says that no exchange is open (X4).",
     "Библиотека сообщает, что обмен не открыт (X4)."},
    {Text::WhyOtherId, "An exchange with another terminal id is open (X5).",
     "Открыт обмен с другим номером терминала (X5)."},
    {Text::WhyPipes, "The pipes to the terminal module cannot be made (X6).",
     "Не создаются каналы к терминальному модулю (X6)."},
    {Text::WhyNested, "The library is already at work (X7).", "Библиотека уже занята (X7)."},
    {Text::WhyNoModule,
     "The terminal module could not be started (X8): perhaps another till uses this terminal id, or an "
     "update is being installed. zat_comm.log beside the library says more.",
     "Терминальный модуль не запущен (X8): возможно, этот номер терминала занят другой кассой или идёт "
     "обновление. Подробнее в zat_comm.log рядом с библиотекой."},
    {Text::WhyPause, "The pause after the previous request is not over (eftpos.cfg).",
     "Пауза после предыдущего запроса ещё не кончилась (eftpos.cfg)."},
    {Text::WhyLeft, "Left without waiting for the end.", "Выход без ожидания конца."},
    {Text::WhyStrange, "The library answered with an unknown result {}.",
     "Библиотека ответила неизвестным результатом {}."},
    {Text::WhyNoJournal,
     "The payment cannot be recorded, so it was not sent. {1}. (--no-journal pays without a record.)",
     "Оплату нельзя записать в журнал, поэтому она не отправлена. {1}. (С ключом --no-journal — без "
     "записи.)"},
    {Text::AdviceUnknown,
     "Do not repeat the operation before the terminal or the bank has said whether it was made.",
     "Не повторяйте операцию, пока терминал или банк не скажет, совершена ли она."},
    {Text::AdviceRecover, "Ask the terminal: zat_till recover.", "Спросите терминал: zat_till recover."},
    {Text::ShAmount, "Amount", "Сумма"},
    {Text::ShRrn, "Reference number", "Номер ссылки"},
    {Text::ShAuth, "Authorisation code", "Код авторизации"},
    {Text::ShCard, "Card", "Карта"},
    {Text::ShMessage, "Message", "Сообщение"},
    {Text::OtherAmount, "NOTE: the terminal approved {}, the till asked for {}.",
     "ВНИМАНИЕ: терминал одобрил {}, касса просила {}."},
    // the journal
    {Text::JournalUnreadable, "The journal {} cannot be read: {}.", "Журнал {} не читается: {}."},
    {Text::JournalUnwritable, "The journal {} cannot be written: {}.", "Журнал {} не записывается: {}."},
    {Text::JournalMended,
     "The journal {0} was damaged. It has been written anew; the damaged file is {0}.bad.",
     "Журнал {0} был повреждён. Он записан заново, повреждённый файл: {0}.bad."},
    {Text::JournalDamaged,
     "The journal {} is damaged. Shown is what can be read of it; the next payment writes it anew.",
     "Журнал {} повреждён. Показано то, что читается; следующая оплата запишет его заново."},
    {Text::JournalTrouble, "The journal: {}.", "Журнал: {}."},
    {Text::JournalEmpty, "The journal has no entries.", "В журнале нет записей."},
    {Text::NotOpen, "There is no payment {} with an unknown outcome.", "Оплаты {} с неизвестным итогом нет."},
    {Text::WarnOne,
     "Payment {} has an unknown outcome ({}). Ask the terminal: zat_till recover. New payments are possible, "
     "but "
     "after one the terminal may not tell.",
     "Итог оплаты {} неизвестен ({}). Спросите терминал: zat_till recover. Новые оплаты возможны, но после "
     "них "
     "терминал может не ответить."},
    {Text::WarnSome,
     "{} payments have an unknown outcome, the first is {} ({}). Ask the terminal: zat_till recover. New "
     "payments are "
     "possible, but after one the terminal may not tell.",
     "Итог неизвестен у оплат: {}, первая из них {} ({}). Спросите терминал: zat_till recover. Новые оплаты "
     "возможны, "
     "но после них терминал может не ответить."},
    {Text::NothingUnknown, "No payment has an unknown outcome.", "Оплат с неизвестным итогом нет."},
    {Text::AdviceSettle,
     "What stays unknown the bank knows, or the terminal's report (zat_till raw 25 1). Then say it: zat_till "
     "settle.",
     "Что осталось неизвестным, знает банк или отчёт терминала (zat_till raw 25 1). Затем: zat_till settle."},
    {Text::WaitsForModule, "The terminal is still at work", "Терминал ещё занят"},
    {Text::OfTerminal, "terminal {}", "терминал {}"},
    {Text::ByPerson, "(said by a person)", "(со слов человека)"},
    {Text::NotMade, "NOT CARRIED OUT", "НЕ СОВЕРШЕНО"},
    {Text::Running, "RUNNING", "ИДЁТ"},
    {Text::GroundReference, "The terminal has it under its reference number.",
     "Терминал знает её по номеру ссылки."},
    {Text::GroundLast, "It is the terminal's last payment.", "Это последняя оплата терминала."},
    {Text::GroundNothingSince, "The terminal's last payment is an earlier one.",
     "Последняя оплата терминала — более ранняя."},
    {Text::GroundEmptyDay, "The terminal has made no payment in this day.",
     "За этот день терминал оплат не совершал."},
    {Text::GroundGone, "The terminal does not have its reference number.",
     "Её номера ссылки у терминала нет."},
    {Text::GroundHidden, "Another payment has been made since, and the terminal shows only the last one.",
     "После неё была другая оплата, а терминал показывает только последнюю."},
    {Text::GroundOtherTill, "The terminal's last payment is another one, which is not in this journal.",
     "Последняя оплата терминала — другая, и в этом журнале её нет."},
    {Text::GroundTwoAlike, "It is this one or another of the same amount and second.",
     "Это она или другая с той же суммой в ту же секунду."},
    {Text::GroundDayClosed, "The terminal may have closed its day since and forgotten it.",
     "Терминал с тех пор мог закрыть день и забыть её."},
    {Text::GroundTooEarly, "The terminal may still be at work on it: ask again in three minutes.",
     "Терминал, возможно, ещё занят ею: спросите снова через три минуты."},
    {Text::GroundNoAnswer, "The terminal could not be asked.", "Терминал спросить не удалось."},
    {Text::GroundNotShown, "Terminals do not show whether a payment was taken back or closed.",
     "Терминалы не показывают, отменена или завершена ли оплата."},
    {Text::GroundLost, "Its record is lost in a damaged journal", "Её запись пропала в повреждённом журнале"},
};

consteval bool InOrder() {
  int i = 0;
  for (const TextRow& row : kTexts)
    if (static_cast<int>(row.oText) != i++) return false;
  return i == static_cast<int>(Text::eCount);
}
static_assert(InOrder(), "one row for each text, in the order of their names");

bool fRussianNow = false;

// The value that decides for a category: the first that is set of LC_ALL, the category's own and LANG.
std::string_view FromEnvironment(const char* category) {
  for (const char* name : {"LC_ALL", category, "LANG"}) {
    const char* value = getenv(name);
    if (value && *value) return value;
  }
  return "C";
}

// The code page of the terminal. Where the named locale is not installed the C library falls back to ASCII;
// the name itself ("ru_RU.UTF-8") still says what the terminal shows.
tString TerminalCharset() {
  if (setlocale(LC_CTYPE, "")) return nl_langinfo(CODESET);
  std::string_view name = FromEnvironment("LC_CTYPE");
  name = name.substr(0, name.find('@'));
  size_t point = name.find('.');
  return tString(point == name.npos ? "ASCII" : name.substr(point + 1));
}

// iconv knows UTF-8 under many names, this program compares with one.
tString OneNameOfUtf8(tString name) {
  bool utf8 = name == "utf8" || name == "UTF8" || name == "utf-8";
  return utf8 ? client::kUtf8 : name;
}

} // namespace

Manner UserManner() {
  Manner manner;
  manner.oCharset = OneNameOfUtf8(TerminalCharset());
  manner.fRussian = FromEnvironment("LC_MESSAGES").starts_with("ru") &&
                    client::Charset(manner.oCharset, client::kUtf8)
                        .Fits(kTexts[static_cast<int>(Text::Approved)].pccRussian);
  return manner;
}

void SpeakRussian(bool fRussian) { fRussianNow = fRussian; }

const char* Say(Text text) {
  const TextRow& row = kTexts[static_cast<int>(text)];
  return fRussianNow ? row.pccRussian : row.pccEnglish;
}

} // namespace zat::till
