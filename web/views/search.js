// A search field: "/" goes to that of the part in which the focus is, or else to the table's; escape leaves
// it and shows all.
import { add } from "../base/elements.js";

/** Sets `search` and `isRegex` of the state; gives where an error of the expression is shown. */
export function addSearch(controls, state, id = "search", placeholder = "Search names (press /)") {
  const frame = add(controls, "div", { class: "search" });
  const field = add(frame, "input", {
    type: "search",
    id,
    placeholder,
    "aria-label": "Search",
    "aria-describedby": `${id}-error`,
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
  const error = add(frame, "p", { id: `${id}-error`, class: "error", role: "alert" });
  field.addEventListener("input", () => state.set({ search: field.value, open: null }));
  regex.addEventListener("click", () => state.set({ isRegex: !state.get("isRegex") }));
  state.watch(["search", "isRegex"], () => {
    if (field.value !== state.get("search")) field.value = state.get("search");
    regex.setAttribute("aria-pressed", state.get("isRegex"));
  });
  document.addEventListener("keydown", (key) => {
    const at = document.activeElement;
    if (key.key !== "/" || /^(INPUT|SELECT|TEXTAREA)$/.test(at.tagName)) return;
    const nearest = at.closest("section")?.querySelector("input[type=search]");
    if ((nearest?.id ?? "search") !== id) return;
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
