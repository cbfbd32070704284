#include "AmbitudeCore/Coach/CoachToolTexts.h"

namespace halvo::CoachToolTexts {

const char* const correctJudgment =
    R"lark(Record a durable FACT the user taught you: that a specific app (or the thing they're doing in it) is actually part of one of their projects/tasks — so the judgment that flagged them was missing context, not that their goal changed. This is NOT write_task: their declared task does not move; you are recording what an app MEANS for them so the system stops misreading it. Call this ONLY after THEY have told you, in their own words, what the app is for — e.g. they say "fruit ninja IS my imgd project 3". Never call it on a guess of your own that they merely said yes to; if you proposed the link and they only confirmed it, ask them what they mean instead. The fact is revisable by them (one-tap undo), so it is living memory, not a baked-in rule — but it is still theirs to state, not yours to invent.)lark";
const char* const correctJudgmentApp =
    R"lark(the app (or activity) they told you is part of a project — usually the frontmost_app in your context, named as they referred to it. Their words, tidied is fine; invented is not.)lark";
const char* const correctJudgmentProject =
    R"lark(the project/task they said that app belongs to, in their own words (e.g. "IMGD Project 3"). Not a label you came up with.)lark";
const char* const goQuiet =
    R"lark(They have asked you to stop interrupting them. Use this — not `do_not_disturb`. That one is YOUR choice to hold messages and it ends early on its own; this one is THEIR instruction and it holds for exactly as long as they said, no matter what turns up on screen. Nothing is lost: what the classifier notices is kept and summarized for you when quiet ends. Give `minutes` for a duration they named, or `rest_of_day` when they mean the rest of today. Do not shorten what they asked for, do not argue with it, and do not ask them to justify it. `message` is your one short acknowledgment.)lark";
const char* const goQuietMinutes =
    R"lark(how long they asked for, in minutes, 5-1440. Omit if using rest_of_day.)lark";
const char* const goQuietRestOfDay =
    R"lark(true when they mean the rest of today rather than a number of minutes. Use this instead of working out the minutes yourself.)lark";
const char* const goQuietMessage =
    R"lark(one short acknowledgment — "okay, quiet till 4". Not an argument, not a negotiation, not a request for a reason.)lark";
const char* const rememberCorrection =
    R"lark(Record something the user told you about HOW you are behaving, so it keeps applying to every decision for as long as they meant it to. Use this when they tell you that you are interrupting too much or too little, that a kind of message is unwelcome, that you got something about them wrong, or that you should handle a situation differently in future. This is NOT write_task (their intention does not move) and NOT correct_judgment (that records a fact about what an app means to them); this records a standing instruction about you. Call it ONLY for something THEY said, in their words — if you merely suspect you are annoying them, that is not a correction, and recording your own guess as their instruction would teach the system a preference they never stated. They can see and delete these, so it is living memory, not a rule you get to write about them.)lark";
const char* const rememberCorrectionCorrection =
    R"lark(what they told you, in their own words — tidied is fine, invented is not. Write it as the standing instruction it should become, not as a description of this conversation: "don't ask what my first step is", not "they disliked my last message".)lark";
const char* const rememberCorrectionLasts =
    R"lark(how long it applies, from their own words. A correction is followed on every decision until it ends, so one they limited in time and recorded as standing keeps overruling you long after they meant it to stop, and one they meant as standing and recorded as limited stops being followed while they still expect it. rest_of_today: they tied it to today or tonight (ends the next morning). next_few_hours: "for now" or the stretch they are in (ends in about three hours). until_changed: a standing preference about how you behave, with nothing in their words limiting it.)lark";
const char* const rememberCorrectionScope =
    R"lark(omit unless they were clearly talking about one or the other. whether_to_speak is about interrupting them at all; what_to_say is about the content of a message once it happens. Omitting it applies the correction to both, which is the safer default.)lark";
const char* const proposeOptions =
    R"lark(Offer them a card of tappable options in chat instead of asking them to type an answer. You are proposing, never setting: tapping a chip is THEM acting, and it applies the real setting immediately — you never call anything that sets it yourself. `setting` names which real setting this card is about; the app owns what each option id actually does, so a setting or id it doesn't recognize is just an inert chip, not an error. `message` is what they see alongside the card — always fill it with your real words, the same rule `open_ui` uses. Once they tap Next you get their choices back as one message; until then, don't ask again or wait on it — say your piece in `message` and move on.)lark";
const char* const proposeOptionsSetting =
    R"lark(which real setting this card is about — the app decides what's real, not this schema.)lark";
const char* const proposeOptionsTitle =
    R"lark(the card's heading)lark";
const char* const proposeOptionsHint =
    R"lark(optional short clarifier shown under the label)lark";
const char* const proposeOptionsMessage =
    R"lark(what they see alongside the card — your real words)lark";
const char* const doNotDisturb =
    R"lark(Hold your messages for a while instead of waking on every classifier tick. This is not "give up" — nothing is lost. Anything the classifier notices during the window is kept and handed to you in one summary when the window ends, and the window ends EARLY on its own if what they're doing stops matching `expectation`, or if they take a break. `message` is what they sees now; `expectation` is what you predict you'd keep seeing if nothing changed, and it is what a cheap check compares against while you're quiet.)lark";
const char* const doNotDisturbExpectation =
    R"lark(what you expect to keep seeing while you're quiet, concretely and in a few words — "repeated notifications about YouTube", "more of the same Figma file". Name the THING, not a feeling. If what they're doing stops matching this, you get woken early; so a vague expectation buys you a dumb timer and a specific one buys you a real one.)lark";
const char* const doNotDisturbMinutes =
    R"lark(how long to hold messages, 5-60)lark";
const char* const doNotDisturbMessage =
    R"lark(one short, warm acknowledgment — not an argument)lark";
const char* const openUIMessage =
    R"lark(the reply they see the moment the UI opens — your actual words, not a placeholder)lark";
const char* const openUI =
    R"lark(Bring your conversation in front of them now, instead of leaving it as a passive log line they has to remember to check. Call this whenever you're speaking because YOU noticed something worth raising — drift, an estimate running out, a back-off window ending, a timed-out check-in — rather than replying inside a conversation they already has open. Err toward calling it: nothing bad happens if they're already looking at this conversation, it just won't force anything new in front of them. `message` is what they see the moment it opens — always fill it with your real reply; a call with nothing in `message` will be suppressed and not opened at all.)lark";
const char* const closeUI =
    R"lark(Step back and stop demanding their screen — dismiss the popup, or stop insisting the main window stay frontmost. Use once the conversation has reached a real stopping point, not mid-thought.)lark";
const char* const checkUIState =
    R"lark(Ask whether their UI is open right now, and what the current time is. Returns both and does nothing else — it changes nothing and they never sees that you called it. Useful before `close_ui`, since closing a UI that was never open still yanks their window to the front and interrupts whatever they were typing. Also the one reliable way to know what time it is rather than inferring it from the newest block's timestamp.)lark";
const char* const writeCurrentIntention =
    R"lark(Write down what the user says they are doing now, as the intention everything is held against from here on. Call it in the same turn in which they name an activity, whether or not they gave a time, and say afterwards what you recorded. Breaks and errands count exactly as much as work. Never write an activity they did not express, and never call it again for a plain acknowledgment.)lark";
const char* const writeCurrentIntentionNotes =
    R"lark(the activity in their words — tidied is fine, invented is not. The whole of what they mean to do, never a first step toward it.)lark";
const char* const writeCurrentIntentionHorizon =
    R"lark(the minutes they gave themselves, 1-10080. Omit it, or send null, when they gave no duration; never supply one of your own.)lark";

}  // namespace halvo::CoachToolTexts
