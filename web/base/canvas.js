// A canvas as fine as the screen is.

/** Makes the canvas so large, in CSS pixels, clears it, and returns the context to draw on. */
export function sharpContext(canvas, width, height) {
  const ratio = window.devicePixelRatio || 1;
  canvas.width = width * ratio;
  canvas.height = height * ratio;
  canvas.style.width = `${width}px`;
  canvas.style.height = `${height}px`;
  const context = canvas.getContext("2d");
  context.scale(ratio, ratio);
  return context;
}
