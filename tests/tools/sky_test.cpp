// Star places brought to the date and site, checked against places worked
// independently of the code under test.
#include <gtest/gtest.h>

#include <erfa.h>

#include <cmath>

#include "format.h"
#include "sky.h"
#include "support/angles.h"
#include "units.h"

namespace scopemount::cli {
namespace {

TEST(Sky, ApparentPlaceOfThetaPerseiMatchesThePublishedValue) {
  // theta Persei, FK5 J2000 2h44m11.986s +49d13'42.48", proper motion
  // +0.03425 s/yr and -0.0895"/yr; published apparent place at 2028 Nov 13.19
  // TT (69.184 s later than UTC): 2h46m14.390s +49d21'07.45".
  const double dec = *ParseDegrees("49:13:42.48");
  const Star thetaPersei{"theta Persei", *ParseHours("2:44:11.986"), dec, 4.1,
                         0.03425 * 15.0 * 1000.0 * std::cos(dec), -89.5};
  const double publishedRa = *ParseHours("2:46:14.390");
  const double publishedDec = *ParseDegrees("49:21:07.45");
  const Site greenwich{*ParseDegrees("51:28:38"), 0.0, 0.0};
  const auto place = Observe(thetaPersei, greenwich, UtcTime{2462088.69, -69.184 / 86400.0});
  ASSERT_TRUE(place.has_value());
  // Diurnal aberration moves the place by a fraction of an arcsecond. The
  // hour angle is the apparent sidereal time at Greenwich, 8h03m44.57s (IAU
  // 2006 and the main nutation terms by hand), less the published RA.
  const double hourAngle = *ParseHours("8:03:44.57") - publishedRa;
  EXPECT_NEAR(place->declination, publishedDec, 3 * ARCSEC);
  EXPECT_LT(eraSeps(place->rightAscension, publishedDec, publishedRa, publishedDec), 3 * ARCSEC);
  EXPECT_LT(eraSeps(place->hourAngle, publishedDec, hourAngle, publishedDec), 3 * ARCSEC);
}

TEST(Sky, FastMovingStarsStandWhereTheirCatalogueMotionTakesThem) {
  // Places at 2026.0 worked by hand from the published J2000 places and
  // proper motions, linear along the sky (parallax and the change of the
  // motion stay below an arcsecond). Without their motion they are 36" to
  // 100" away.
  const char* const cases[][3] = {{"Rigil Kentaurus", "14:39:23.408", "-60:49:50.05"},
                                  {"Arcturus", "14:15:37.665", "+19:10:04.69"},
                                  {"Sirius", "6:45:07.929", "-16:43:29.82"}};
  const UtcTime when = *UtcFromCalendar(2026, 1, 1, 0, 0, 0.0);
  const Site site{*ParseDegrees("-33:56"), *ParseDegrees("18:28"), 10.0};
  for (const auto& [star, ra, dec] : cases) {
    const auto place = Observe(*FindStar(star), site, when);
    ASSERT_TRUE(place.has_value()) << star;
    // Back from the observed place to the astrometric one, at that date.
    const auto there = CatalogueFromObserved(place->hourAngle, place->declination, site, when);
    const double off = eraSeps(there->first, there->second, *ParseHours(ra), *ParseDegrees(dec));
    EXPECT_LT(off, 1.5 * ARCSEC) << star << " is " << off / ARCSEC << "\" off";
  }
}

TEST(Sky, CatalogueLookupFormatsAndUnits) {
  EXPECT_STREQ(FindStar("  RIGIL kentaurus")->name, "Rigil Kentaurus");
  EXPECT_EQ(FindStar("Vulcan"), nullptr);
  EXPECT_EQ(FindStar(""), nullptr);
  EXPECT_GE(BrightStars().size(), 50u);
  for (size_t i = 1; i < BrightStars().size(); ++i) {
    EXPECT_LE(BrightStars()[i - 1].magnitude, BrightStars()[i].magnitude) << "brightest first";
  }
  EXPECT_EQ(FormatHours(*ParseHours("18h36m56.3s")), "18:36:56.3");
  EXPECT_EQ(FormatSignedDegrees(*ParseDegrees("-16:42:58")), "-16:42:58");
  EXPECT_NEAR(*ParseDegrees("-0:30"), -0.5 / 180 * PI, 1e-15) << "the sign covers every part";
  EXPECT_FALSE(ParseHours("12:75") || ParseDegrees("north") || ParseDegrees("1:2:3:4"));
  EXPECT_EQ(FormatHoursLong(-1e-5), "23h 59m 59.8625s") << "reduced into one day";
  EXPECT_EQ(FormatHoursLong(-1e-9), "00h 00m 00.0000s") << "rounding carries into the hour";
  EXPECT_EQ(FormatHourAngle(*ParseHours("23:00")), "-01:00:00.0") << "hour angles are signed";
  EXPECT_EQ(FormatHourAngle(*ParseHours("11:30")), "+11:30:00.0");
  EXPECT_NEAR(AzimuthFromNorth(-PI / 2), 1.5 * PI, 1e-15) << "azimuth 0 to 360";
  std::string problem;
  EXPECT_TRUE(ParseUtc("2024-02-29T23:59:59.5Z", &problem)) << problem;
  EXPECT_FALSE(ParseUtc("2025-01-01 25:00", &problem));
  EXPECT_FALSE(ParseUtc("2025-02-29T12:00", &problem));
  EXPECT_EQ(problem, "'2025-02-29T12:00' does not exist");
}

}  // namespace
}  // namespace scopemount::cli
