#include "host/calculation/functions.h"

#include "host/base/unicode.h"

#include <algorithm>
#include <iterator>

namespace fmxhost {
namespace {

// FileMaker's functions, those of the host among them, but for the flags of Get.
constexpr std::u16string_view fileMakersFunctions =
    u" abs acos asin atan average base64decode base64encode base64encoderfc case ceiling char choose code combination"
    u" convertfromfilemakerpath converttofilemakerpath cos count cryptauthcode cryptdecrypt cryptdecryptbase64"
    u" cryptdigest cryptencrypt cryptencryptbase64 cryptgeneratesignature cryptverifysignature databasenames date day"
    u" dayname daynamej dayofweek dayofyear degrees div evaluate evaluationerror exact executesql executesqle exp"
    u" extend factorial fieldbounds fieldcomment fieldids fieldnames fieldrepetitions fieldstyle fieldtype filter"
    u" filtervalues findwordpartsinmodel floor fv get getaddontablename getasboolean getascss getasdate getasnumber"
    u" getassvg getastext getastime getastimestamp getasurlencoded getavplayerattribute getbasetablename"
    u" getcontainerattribute getfield getfieldname getfieldsonlayout getheight getlayoutobjectattribute getlivetext"
    u" getlivetextasjson getmodelattributes getnextserialvalue getnthrecord getrecordids getrecordidsfromfoundset"
    u" getrepetition getsensor getsummary gettableddl getthumbnail gettokencount getvalue getwidth hexdecode hexencode"
    u" hiragana hour if int isempty isvalid isvalidexpression jsondeleteelement jsonformatelements jsongetelement"
    u" jsongetelementtype jsonlistkeys jsonlistvalues jsonmakearray jsonparse jsonparsedstate jsonsetelement"
    u" kanahankaku kanazenkaku kanjinumeral katakana last layoutids layoutnames layoutobjectnames left leftvalues"
    u" leftwords length let lg list ln location locationvalues log lookup lookupnext lower max middle middlevalues"
    u" middlewords min minute mod month monthname monthnamej normalizeembedding npv numtojtext patterncount pi pmt"
    u" position proper pv quote radians random relationinfo replace rgb right rightvalues rightwords romanhankaku"
    u" romanzenkaku round samplingrate scriptids scriptnames second self serialincrement setprecision setrecursion"
    u" sign sin sortvalues sqrt stdev stdevp substitute sum tableids tablenames tan textcolor textcolorremove"
    u" textdecode textencode textfont textfontremove textformatremove textsize textsizeremove textstyleadd"
    u" textstyleremove time timestamp trim trimall truncate uniquevalues upper urlpath valuecount valuelistids"
    u" valuelistitems valuelistnames variance variancep verifycontainer weekofyear weekofyearfiscal while windownames"
    u" winpath wordcount year yearname ";

// Without the prefix that all functions of a plug-in share, which says nothing about which one is meant.
std::u16string withoutPrefix(const std::u16string& name)
{
    return name.substr(name.find(u'_') + 1); // npos + 1: all of it
}

// How many insertions, deletions, substitutions and swaps of neighbours make one text of the other (optimal string
// alignment distance), in UTF-16 units. Time and space grow with the product of the lengths.
std::size_t editDistance(std::u16string_view a, std::u16string_view b)
{
    std::vector<std::vector<std::size_t>> distances(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t row = 0; row <= a.size(); ++row) {
        for (std::size_t column = 0; column <= b.size(); ++column) {
            std::size_t& distance = distances[row][column];
            distance = row + column;
            if (row > 0 && column > 0) {
                const std::size_t substituted = distances[row - 1][column - 1] + (a[row - 1] == b[column - 1] ? 0 : 1);
                distance = std::min({distances[row - 1][column] + 1, distances[row][column - 1] + 1, substituted});
            }
            if (row > 1 && column > 1 && a[row - 1] == b[column - 2] && a[row - 2] == b[column - 1]) {
                distance = std::min(distance, distances[row - 2][column - 2] + 1);
            }
        }
    }
    return distances.back().back();
}

} // namespace

Function::Function(std::u16string_view itsPrototype, std::u16string_view itsDescription, BuiltIn function)
    : name(itsPrototype.substr(0, itsPrototype.find(u' '))), prototype(itsPrototype), description(itsDescription),
      evaluate(std::move(function))
{
    int braces = 0;
    int brackets = 0;
    bool hasAnyNumber = false;
    for (const char16_t unit : prototype) {
        braces += unit == u'{' ? 1 : unit == u'}' ? -1 : 0;
        brackets += unit == u'[' ? 1 : unit == u']' ? -1 : 0;
        const bool beginsArgument = brackets == 0 && (unit == u'(' || unit == u';');
        minimumArguments += beginsArgument && braces == 0 ? 1 : 0;
        maximumArguments += beginsArgument ? 1 : 0;
        hasAnyNumber = hasAnyNumber || (unit == u'…' && brackets == 0);
    }
    maximumArguments = hasAnyNumber ? -1 : maximumArguments;
}

std::string rangeText(int least, int most)
{
    return std::to_string(least) + (most < 0 ? " or more" : most != least ? " to " + std::to_string(most) : "");
}

std::string suggestion(std::string_view word, const std::vector<std::string>& candidates)
{
    constexpr std::size_t longestWord = 200;
    const std::u16string given = withoutPrefix(foldCase(toUtf16(word)));
    std::string best;
    std::size_t bestDistance = std::max<std::size_t>(1, given.size() / 3) + 1;
    for (const std::string& candidate : candidates) {
        const std::u16string folded = withoutPrefix(foldCase(toUtf16(candidate)));
        const std::size_t distance = given.size() > longestWord ? bestDistance : editDistance(given, folded);
        if (distance < bestDistance) {
            best = " Did you mean " + candidate + "?";
            bestDistance = distance;
        }
    }
    return best;
}

FunctionTable::FunctionTable(const std::vector<fmxkit::ExternalFunction>& functions)
    : functions_(functions.begin(), functions.end())
{
    functions_.insert(functions_.end(), builtIns().begin(), builtIns().end());
    for (const Function& function : functions_) {
        byFoldedName_.insert_or_assign(foldCase(function.name), &function); // FileMaker's stay: they are last
    }
}

const Function* FunctionTable::find(std::u16string_view name) const
{
    const auto found = byFoldedName_.find(foldCase(name));
    return found != byFoldedName_.end() ? found->second : nullptr;
}

std::string FunctionTable::unknownText(std::u16string_view name, std::string_view kind) const
{
    if (fileMakersFunctions.find(u' ' + foldCase(name) + u' ') != std::u16string_view::npos) {
        return toUtf8(name) + " is a function of FileMaker that fmxhost lacks.";
    }
    std::vector<std::string> names;
    for (const Function& function : functions_) {
        names.push_back(toUtf8(function.name));
    }
    return "There is no " + std::string(kind) + " called " + toUtf8(name) + "." + suggestion(toUtf8(name), names);
}

} // namespace fmxhost
