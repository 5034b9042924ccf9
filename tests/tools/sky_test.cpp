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

TEST(Sky, BrightStarsStandWhereAnIndependentCatalogueAndCodePutThem) {
  // Places at 2026-01-01 00:00 UTC worked by another astronomy library from
  // another catalogue (Hipparcos 1997: its own positions and motions, its own
  // precession, nutation and aberration): the place in the catalogue frame,
  // motion applied, and the apparent place of date. Left where they stood in
  // 2000, the first three would be 36" to 100" away.
  struct Case {
    const char* star;
    const char* ra;
    const char* dec;
    const char* raOfDate;
    const char* decOfDate;
  };
  const Case cases[] = {
      {"Rigil Kentaurus", "14:39:23.417", "-60:49:49.79", "14:41:21.886", "-60:56:20.59"},
      {"Arcturus", "14:15:37.666", "+19:10:04.71", "14:16:50.742", "+19:02:39.19"},
      {"Sirius", "6:45:07.929", "-16:43:29.81", "6:46:19.323", "-16:45:06.86"},
      {"Procyon", "7:39:16.871", "+5:13:03.08", "7:40:41.368", "+5:09:27.31"},
      {"Altair", "19:50:47.941", "+8:52:15.98", "19:52:02.044", "+8:56:12.86"},
      {"Pollux", "7:45:17.722", "+28:01:33.12", "7:46:56.204", "+27:57:42.51"},
      {"Capella", "5:16:41.547", "+45:59:41.67", "5:18:39.095", "+46:01:29.74"},
  };
  const UtcTime when = *UtcFromCalendar(2026, 1, 1, 0, 0, 0.0);
  const Site site{*ParseDegrees("-33:56"), *ParseDegrees("18:28"), 10.0};
  const auto arcseconds = [](double ra1, double dec1, const char* ra2, const char* dec2) {
    return eraSeps(ra1, dec1, *ParseHours(ra2), *ParseDegrees(dec2)) / ARCSEC;
  };
  for (const Case& c : cases) {
    const auto place = Observe(*FindStar(c.star), site, when);
    ASSERT_TRUE(place.has_value()) << c.star;
    // Back from the observed place to the catalogue frame, at that date.
    const auto there = CatalogueFromObserved(place->hourAngle, place->declination, site, when);
    const double off = arcseconds(there->first, there->second, c.ra, c.dec);
    const double offOfDate =
        arcseconds(place->rightAscension, place->declination, c.raOfDate, c.decOfDate);
    EXPECT_LT(off, 1.0) << c.star;
    EXPECT_LT(offOfDate, 1.0) << c.star << " of date";
    // East of Greenwich a star stands that much farther west (the round trip
    // above cancels a longitude taken the wrong way).
    const auto atGreenwich = Observe(*FindStar(c.star), {site.latitude, 0.0, 0.0}, when);
    EXPECT_NEAR(NormalizeAngle(place->hourAngle - atGreenwich->hourAngle), site.longitude,
                ARCSEC)
        << c.star;
  }
}

TEST(Sky, CatalogueLookupFormatsAndUnits) {
  EXPECT_STREQ(FindStar("  RIGIL kentaurus")->name, "Rigil Kentaurus");
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
}

}  // namespace
}  // namespace scopemount::cli
