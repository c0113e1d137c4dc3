// Where the drawing of the timeline has its parts, in pixels.

export const height = 332;
export const margin = { top: 52, right: 66, bottom: 26, left: 70 };
export const bandTop = 30; // of the phases, below two lines of marks
