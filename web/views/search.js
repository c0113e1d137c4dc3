// The search field: "/" goes there from anywhere, escape leaves it and shows all.
import { add } from "../base/elements.js";

/** Sets `search` and `isRegex` of the state; gives where an error of the expression is shown. */
export function addSearch(controls, state) {
  const frame = add(controls, "div", { class: "search" });
  const field = add(frame, "input", {
    type: "search",
    id: "search",
    placeholder: "Search names (press /)",
    "aria-label": "Search",
    "aria-describedby": "search-error",
    spellcheck: "false",
    autocomplete: "off",
  });
  const regex = add(frame, "button", {
    type: "button",
    text: ".*",
    title: "Search by regular expression",
    "aria-label": "Regular expression",
    "aria-pressed": false,
  });
  const error = add(frame, "p", { id: "search-error", class: "error", role: "alert" });
  field.addEventListener("input", () => state.set({ search: field.value, open: null }));
  regex.addEventListener("click", () => state.set({ isRegex: !state.get("isRegex") }));
  state.watch(["search", "isRegex"], () => {
    if (field.value !== state.get("search")) field.value = state.get("search");
    regex.setAttribute("aria-pressed", state.get("isRegex"));
  });
  document.addEventListener("keydown", (key) => {
    if (key.key !== "/" || /^(INPUT|SELECT|TEXTAREA)$/.test(document.activeElement.tagName)) return;
    field.focus();
    key.preventDefault();
  });
  field.addEventListener("keydown", (key) => {
    if (key.key !== "Escape") return;
    state.set({ search: "" });
    field.blur();
  });
  return {
    setError: (text) => {
      error.textContent = text ?? "";
      field.setAttribute("aria-invalid", Boolean(text));
    },
  };
}
