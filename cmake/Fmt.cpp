// The one place where the functions of fmt are compiled. Its header-only form would compile them
// again in every source that formats, four seconds each. Relies on the list of what fmt's headers
// declare as compiled elsewhere.
#include <fmt/format-inl.h>

FMT_BEGIN_NAMESPACE
namespace detail {

template FMT_API void vformat_to(buffer<char>&, string_view, typename vformat_args<>::type,
                                 locale_ref);
template FMT_API auto thousands_sep_impl(locale_ref) -> thousands_sep_result<char>;
template FMT_API auto decimal_point_impl(locale_ref) -> char;
template FMT_API auto dragonbox::to_decimal(float) noexcept -> dragonbox::decimal_fp<float>;
template FMT_API auto dragonbox::to_decimal(double) noexcept -> dragonbox::decimal_fp<double>;

} // namespace detail
FMT_END_NAMESPACE
