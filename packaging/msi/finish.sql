-- What wixl 0.101 does not take of a package, set by `build` behind it. A statement ends with ";" at the
-- end of a line, and its texts have no apostrophes.

-- The machine's values: each only when it was given, now or in the past, which a repair asks again
-- (transitive, 64; the key path is a registry value, 4; in a 64-bit package 256 as well).
UPDATE `Component` SET `Condition` = 'LOGLEVEL', `Attributes` = @CONDITIONAL@ WHERE `Component` = 'LogLevel';
UPDATE `Component` SET `Condition` = 'SKIPEXTENDEDMAPI', `Attributes` = @CONDITIONAL@
  WHERE `Component` = 'SkipExtendedMapi';

-- What reaches the part of the installation that runs with the system's rights.
UPDATE `Property`
  SET `Value` = 'INSTALLDIR;LOGLEVEL;NEWERVERSION;OLDERVERSION;REMEMBEREDINSTALLDIR;REMEMBEREDLOGLEVEL;REMEMBEREDSKIPEXTENDEDMAPI;SKIPEXTENDEDMAPI'
  WHERE `Property` = 'SecureCustomProperties';

-- Actions that set a property; wixl adds an option that is meant for programs.
UPDATE `CustomAction` SET `Type` = 51 WHERE `Type` = 2099;

-- Refusals, which end the installation with 1603. Their reason is in every log: as the error itself, which
-- Wine does not write, and as the text of the action, which runs in that case alone.
CREATE TABLE `ActionText` (`Action` CHAR(72) NOT NULL, `Description` CHAR(0) LOCALIZABLE,
  `Template` CHAR(0) LOCALIZABLE PRIMARY KEY `Action`);
INSERT INTO `ActionText` (`Action`, `Description`)
  VALUES ('RefuseDowngrade', 'A newer version of Zentpost is installed. Remove it first to install this one.');
INSERT INTO `CustomAction` (`Action`, `Type`, `Target`)
  VALUES ('RefuseDowngrade', 19, 'A newer version of Zentpost is installed. Remove it first to install this one.');
INSERT INTO `ActionText` (`Action`, `Description`)
  VALUES ('RefuseLogLevel', 'LOGLEVEL must be a number from 0 to 32767.');
INSERT INTO `CustomAction` (`Action`, `Type`, `Target`)
  VALUES ('RefuseLogLevel', 19, 'LOGLEVEL must be a number from 0 to 32767.');
INSERT INTO `ActionText` (`Action`, `Description`)
  VALUES ('RefuseSkipExtendedMapi', 'SKIPEXTENDEDMAPI must be a number from 0 to 32767.');
INSERT INTO `CustomAction` (`Action`, `Type`, `Target`)
  VALUES ('RefuseSkipExtendedMapi', 19, 'SKIPEXTENDEDMAPI must be a number from 0 to 32767.');
