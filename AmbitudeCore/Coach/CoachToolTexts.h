#pragma once

/// What the models are told of each tool and each of its arguments, word for word.
namespace halvo::CoachToolTexts {

extern const char* const correctJudgment;
extern const char* const correctJudgmentApp;
extern const char* const correctJudgmentProject;
extern const char* const goQuiet;
extern const char* const goQuietMinutes;
extern const char* const goQuietRestOfDay;
extern const char* const goQuietMessage;
extern const char* const rememberCorrection;
extern const char* const rememberCorrectionCorrection;
extern const char* const rememberCorrectionLasts;
extern const char* const rememberCorrectionScope;
extern const char* const proposeOptions;
extern const char* const proposeOptionsSetting;
extern const char* const proposeOptionsTitle;
extern const char* const proposeOptionsHint;
extern const char* const proposeOptionsMessage;
extern const char* const doNotDisturb;
extern const char* const doNotDisturbExpectation;
extern const char* const doNotDisturbMinutes;
extern const char* const doNotDisturbMessage;
extern const char* const openUIMessage;
extern const char* const openUI;
extern const char* const closeUI;
extern const char* const checkUIState;
extern const char* const writeCurrentIntention;
extern const char* const writeCurrentIntentionNotes;
extern const char* const writeCurrentIntentionHorizon;

}  // namespace halvo::CoachToolTexts
